// The one implementation of ImManager: a task thread with a Win32 message
// queue for the work that must not run on the host's thread, and static SDK
// callbacks that find their way back through `user_data`.
#pragma once

#include <windows.h>

#include <stdint.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>

#include "base/lock.h"
#include "base/scoped_handle.h"
#include "roomcore/im_manager.h"

class ImManagerImpl;

// Numbered messages of the task thread.
enum ImTask {
  IMTask_Stop = 8000,
  IMTask_Login = 8001,
  IMTask_Logout = 8002,
  IMTask_SendWhiteBoardData = 8003,  // WPARAM: the ImSendTask*, owned by the handler
};

// One send. The queued record carries the data; the record in flight at the
// SDK carries none and leads the callback back to the manager.
struct ImSendTask {
  int conv_type = 0;
  int event = 0;
  int elem_type = 0;
  std::string conv_id;
  ImManagerImpl* manager = nullptr;
  std::unique_ptr<char[]> data;  // `length` bytes and a NUL
  int length = 0;
  void* user_data = nullptr;
  // How often the group had been left when the record was queued. A flush
  // sends it only if no leave came between its queueing and the last join.
  uint64_t leaves = 0;
};

// Whiteboard data received while no WhiteBoardEvent was set.
struct CachedWhiteBoardMsg {
  std::unique_ptr<char[]> data;  // exactly `length` bytes, or null when empty
  int length = 0;
};

class ImManagerImpl : public ImManager {
 public:
  ImManagerImpl();
  ~ImManagerImpl() override;

  void SetEventCallback(ImManagerEvent* callback) override;
  void SetWhiteBoardCallback(WhiteBoardEvent* callback) override;
  void SetConfigPath(const std::string& path) override;
  void ReLogIn() override;
  bool LogInAndJoinGroup(const std::string& app_id, const std::string& account_type,
                         const std::string& usr_id, const std::string& usr_sign,
                         const std::string& group_id) override;
  const char* GetUsrId() override;
  void LogoutAndQuitGroup() override;
  void SendC2CTextMessage(const std::string& usr_id, const std::string& text) override;
  void SendGroupTextMessage(const std::string& text) override;
  void SendC2CCustomMessage(const std::string& usr_id, const char* data, int length) override;
  void SendGroupCustomMessage(const char* data, int length, void* reserved) override;
  void SendWhiteBoardData(const char* data, int length, void* user_data) override;

  // 0 until the task thread exists.
  DWORD TaskThreadId() const { return task_thread_id_; }

  // The two pieces of configuration JSON given to the SDK at every login.
  static std::string BuildInitConfigJson(const std::string& config_path);
  static std::string BuildSetConfigJson();
  // The message JSON of one send; `sender` is the own user id.
  static std::string BuildMessageJson(int conv_type, const std::string& conv_id, const std::string& sender,
                                      const std::string& content, int elem_type);

 private:
  // Reaches need_logout_ and the task thread id for unit tests.
  friend class ImManagerImplTestPeer;

  // A copy of the text fields, taken under strings_lock_.
  struct Credentials {
    std::string group_id;
    std::string usr_id;
    std::string app_id;
    std::string account_type;
    std::string usr_sign;
    std::string config_path;
  };

  static DWORD WINAPI TaskThreadEntry(LPVOID param);
  void TaskLoop();
  bool PostTask(UINT message, WPARAM param = 0);
  void CloseTaskQueue();

  bool Initialize(const std::string& app_id, const std::string& account_type);
  void UnInitialize();
  void RegisterTIMCallbacks();
  void UnregisterTIMCallbacks();
  void TIMSDKConfig();

  bool LogIn(const std::string& app_id, const std::string& account_type, const std::string& usr_id,
             const std::string& usr_sign);
  void ClearCaches();
  void OnLoginTask();
  void JoinGroupTask();
  void OnLogoutTask();
  void QuitGroupTask();
  void LogOut();

  // Membership changes, under queue_lock_, so that a flush and a send see
  // them in one order with the queue.
  void EnterGroup();
  void LeaveGroup();
  void OnSendWhiteBoardDataTask(std::unique_ptr<ImSendTask> task);
  void FlushPendingSends();
  bool SendTIMMessage(int conv_type, const std::string& conv_id, const std::string& content, int event,
                      int elem_type, void* user_data);

  void HandleTIMLoginCallback(int code, const char* desc);
  void HandleTIMLogoutCallback(int code, const char* desc);
  void HandleTIMGroupJoinCallback(int code, const char* desc);
  void HandleTIMGroupQuitCallback(int code, const char* desc);
  void HandleTIMSetConfigCallback(int code, const char* desc);
  void HandleTIMNetworkStatusListenerCallback(int status, int code, const char* desc);
  void HandleTIMKickedOffline();
  void HandleTIMUserSigExpired();
  void HandleTIMSendMsgCallback(ImSendTask* task, int code, const char* desc);
  void HandleTIMRecvNewMsgCallback(const char* json);
  void HandleRecvGroupCustomMsg(const std::string& group_id, const std::string& sender, const char* data,
                                int length);

  // Events delivered without event_lock_ (login, logout, join, set-config,
  // signature expired); the others take it.
  void DeliverImEvent(int event, int code, const char* desc);
  void DeliverImEventLocked(int event, int code, const char* desc);

  Credentials CopyCredentials();

  static void OnTIMLoginCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMLogoutCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMGroupJoinCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMGroupQuitCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMSetConfigCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMSendMsgCallback(int32_t code, const char* desc, const char* json, const void* user_data);
  static void OnTIMNetworkStatusCallback(int32_t status, int32_t code, const char* desc,
                                         const void* user_data);
  static void OnTIMKickedOfflineCallback(const void* user_data);
  static void OnTIMUserSigExpiredCallback(const void* user_data);
  static void OnTIMGroupTipsCallback(const char* json, const void* user_data);
  static void OnTIMRecvNewMsgCallback(const char* json, const void* user_data);
  static void OnTIMLogCallback(int32_t level, const char* text, const void* user_data);

  // Bools are read and written by the host's, the task and the SDK's threads
  // without a lock: atomics, so that no read tears or goes stale.
  std::atomic<bool> is_initialized_{false};
  // Stored under event_lock_; atomic so that the events delivered without
  // the lock read it safely.
  std::atomic<ImManagerEvent*> event_callback_{nullptr};
  WhiteBoardEvent* whiteboard_callback_ = nullptr;  // guarded by whiteboard_lock_
  // The text fields are written by LogIn on the host's thread and read on
  // the others: guarded by strings_lock_, which is only held to copy them.
  std::string group_id_;
  std::string usr_id_;
  std::string app_id_;
  std::string account_type_;
  std::string usr_sign_;
  std::string config_path_;
  std::atomic<bool> need_join_group_{false};
  std::atomic<bool> is_in_group_{false};
  std::atomic<bool> is_logged_in_{false};
  base::Lock whiteboard_lock_;
  base::Lock event_lock_;
  base::Lock queue_lock_;
  base::Lock strings_lock_;
  std::list<std::unique_ptr<CachedWhiteBoardMsg>> recv_cache_;  // guarded by whiteboard_lock_
  // Nothing sets it: LogoutAndQuitGroup leaves the group and keeps the SDK
  // login, so the LogOut path stays reachable only through this flag.
  std::atomic<bool> need_logout_{false};
  base::ScopedHandle stop_event_;
  std::atomic<DWORD> task_thread_id_{0};
  // Set when the task loop has ended; posts in flight are counted so that
  // the end can wait for them and free what they queued.
  std::atomic<bool> queue_closed_{false};
  std::atomic<int> posts_in_progress_{0};
  base::ScopedHandle ready_event_;
  std::list<std::unique_ptr<ImSendTask>> pending_sends_;  // guarded by queue_lock_
  bool flushing_ = false;                                 // guarded by queue_lock_
  uint64_t group_leaves_ = 0;                             // guarded by queue_lock_
  uint64_t leaves_at_join_ = 0;                           // guarded by queue_lock_
  std::atomic<int> login_retry_count_{0};
};
