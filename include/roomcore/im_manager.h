// IM signalling: log in to the instant-messaging service, join one group,
// and send and receive text, custom and whiteboard data through it.
//
// All text is UTF-8. Events come on the library's task thread or on the
// messaging SDK's threads, never on the thread that made the call, except
// that SetWhiteBoardCallback delivers cached whiteboard data on the caller's
// own thread. An event interface must not call SetEventCallback or
// SetWhiteBoardCallback from inside one of its own calls, and must not
// destroy the manager from inside any event.
#pragma once

#include <string>

#include "roomcore_export.h"

// Numbers of ImManagerEvent::OnImEvent.
enum ImEventType {
  IMEvent_SetConfig = 0,
  IMEvent_Login = 1,
  IMEvent_Logout = 2,
  IMEvent_JoinGroup = 4,
  IMEvent_QuitGroup = 5,
  IMEvent_SendC2CText = 7,
  IMEvent_SendGroupText = 8,
  IMEvent_SendC2CCustom = 9,
  IMEvent_SendGroupCustom = 10,
  IMEvent_KickedOffline = 13,
  IMEvent_Connected = 14,
  IMEvent_Connecting = 15,
  IMEvent_Disconnected = 16,
  IMEvent_UserSigExpired = 18,
};

// Implemented by the host. Text arguments are valid for the call only.
class ImManagerEvent {
 public:
  virtual void OnImEvent(int event, int code, const char* desc) = 0;
  virtual void OnRecvC2CTextMessage(const char* sender, const char* text) = 0;
  virtual void OnRecvGroupTextMessage(const char* group_id, const char* sender, const char* text) = 0;
  virtual void OnRecvC2CCustomMessage(const char* sender, const char* data, int length) = 0;

 protected:
  virtual ~ImManagerEvent() = default;
};

// Implemented by the host. `data` is valid for the call only; go by
// `length`: data delivered from the cache has no NUL behind it.
class WhiteBoardEvent {
 public:
  virtual void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data,
                                    int length) = 0;
  // The outcome of every send, whiteboard or not; `user_data` is the value
  // given to SendWhiteBoardData, null for the other sends.
  virtual void OnSendWhiteBoardDataResult(int code, const char* desc, void* user_data) = 0;

 protected:
  virtual ~WhiteBoardEvent() = default;
};

class ROOMCORE_API ImManager {
 public:
  // The one manager, made at first use. While DestroyImManagerInstance
  // runs, it returns the manager being destroyed without waiting, so that an
  // event handler may call it; that pointer is not to be used once the
  // destroy has returned.
  static ImManager* GetImManagerInstance();
  // Destroys the manager, blocking until its task thread has ended; the next
  // GetImManagerInstance makes a new one. Not to be called from an event.
  static void DestroyImManagerInstance();

  ImManager(const ImManager&) = default;
  ImManager& operator=(const ImManager&) = default;

  // Set before logging in; the library never frees either interface.
  virtual void SetEventCallback(ImManagerEvent* callback) = 0;
  // Also delivers whiteboard data cached while no interface was set, on
  // this thread; and starts a login attempt if not logged in.
  virtual void SetWhiteBoardCallback(WhiteBoardEvent* callback) = 0;
  // Directory for the SDK's own configuration; used at the next login.
  virtual void SetConfigPath(const std::string& path) = 0;
  virtual void ReLogIn() = 0;
  // Always true; the outcome comes as IMEvent_Login and IMEvent_JoinGroup.
  // Not to be called again while a login is under way.
  virtual bool LogInAndJoinGroup(const std::string& app_id, const std::string& account_type,
                                 const std::string& usr_id, const std::string& usr_sign,
                                 const std::string& group_id) = 0;
  // Valid until the next LogInAndJoinGroup.
  virtual const char* GetUsrId() = 0;
  // Leaves the group (IMEvent_QuitGroup); the SDK login stays.
  virtual void LogoutAndQuitGroup() = 0;
  // Only while in the group; otherwise nothing is sent.
  virtual void SendC2CTextMessage(const std::string& usr_id, const std::string& text) = 0;
  virtual void SendGroupTextMessage(const std::string& text) = 0;
  // Data up to its first NUL; `length` is not read.
  virtual void SendC2CCustomMessage(const std::string& usr_id, const char* data, int length) = 0;
  // Data up to its first NUL; `length` and `reserved` are not read.
  virtual void SendGroupCustomMessage(const char* data, int length, void* reserved) = 0;
  // Data up to its first NUL (a null `data` sends empty data). Waits while
  // the group is not joined; the outcome comes with `user_data`.
  virtual void SendWhiteBoardData(const char* data, int length, void* user_data) = 0;

 protected:
  ImManager() = default;
  virtual ~ImManager() = default;
};
