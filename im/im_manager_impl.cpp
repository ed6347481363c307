// ImManagerImpl: the singleton, the task thread, SDK initialisation and
// configuration, login and the group lifecycle, and the listeners.
#include "im/im_manager_impl.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <utility>

#include "base/thread_start.h"
#include "im/im_log.h"
#include "imsdk/imsdk.h"

using im::Log;
using im::Wide;

namespace {

base::Lock g_instance_lock;
ImManagerImpl* g_instance = nullptr;  // guarded by g_instance_lock
// The object a destroy is ending, and the sign that it has ended; both
// guarded by g_instance_lock. The destroy waits for the task thread without
// the lock, so that a handler on that thread may still get the instance.
ImManagerImpl* g_dying = nullptr;
DWORD g_dying_task_thread = 0;  // read at the start of the destroy, while the object lives
base::ConditionVariable g_destroy_ended;

const char* OrEmpty(const char* text) { return text ? text : ""; }

unsigned PointerBits(const void* pointer) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

}  // namespace

// ---- singleton ----

ImManager* ImManager::GetImManagerInstance() {
  base::AutoLock hold(g_instance_lock);
  // A destroy under way owns the one instance until it ends. A host handler
  // on the dying object's own task thread runs inside that destroy, which
  // waits for the thread: it gets the dying object, or the destroy could
  // never end. Any other thread waits for the end and gets a new object; the
  // dying one would be freed under whatever it started on it.
  while (g_dying) {
    if (g_dying_task_thread != 0 && g_dying_task_thread == GetCurrentThreadId()) return g_dying;
    g_destroy_ended.Wait(g_instance_lock);
  }
  if (!g_instance) g_instance = new ImManagerImpl();
  return g_instance;
}

void ImManager::DestroyImManagerInstance() {
  ImManagerImpl* dying = nullptr;
  {
    base::AutoLock hold(g_instance_lock);
    // A destroy already under way: this one returns when that one is done.
    while (g_dying) g_destroy_ended.Wait(g_instance_lock);
    if (!g_instance) return;
    dying = g_instance;
    g_dying = dying;
    g_dying_task_thread = dying->TaskThreadId();
    g_instance = nullptr;
  }
  delete dying;
  {
    base::AutoLock hold(g_instance_lock);
    g_dying = nullptr;
    g_dying_task_thread = 0;
  }
  g_destroy_ended.Broadcast();
}

// ---- frame ----

ImManagerImpl::ImManagerImpl()
    : stop_event_(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      ready_event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

ImManagerImpl::~ImManagerImpl() {
  DWORD thread_id = task_thread_id_;
  if (thread_id != 0) {
    // A full queue refuses the post for a moment; a thread that is already
    // gone has set stop_event_.
    while (!PostThreadMessageW(thread_id, IMTask_Stop, 0, 0) &&
           WaitForSingleObject(stop_event_.get(), 1) == WAIT_TIMEOUT) {
    }
    WaitForSingleObject(stop_event_.get(), INFINITE);
    stop_event_.Close();
  }
  UnInitialize();
}

DWORD WINAPI ImManagerImpl::TaskThreadEntry(LPVOID param) {
  ImManagerImpl* self = static_cast<ImManagerImpl*>(param);
  if (!self) return 0;
  self->TaskLoop();
  return 0;
}

void ImManagerImpl::TaskLoop() {
  MSG msg;
  PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
  // stop_event_ is cleared before ready_event_ tells LogIn that the queue
  // exists, so that a destructor that follows at once cannot find the
  // start-up value of stop_event_ and free the object under this thread.
  ResetEvent(stop_event_.get());
  SetEvent(ready_event_.get());
  for (;;) {
    BOOL got = GetMessageW(&msg, nullptr, 0, 0);
    if (got == 0 || got == -1) break;
    bool stop = false;
    switch (msg.message) {
      case IMTask_Stop:
        stop = true;
        break;
      case IMTask_Login:
        OnLoginTask();
        break;
      case IMTask_Logout:
        OnLogoutTask();
        break;
      case IMTask_SendWhiteBoardData:
        OnSendWhiteBoardDataTask(std::unique_ptr<ImSendTask>(reinterpret_cast<ImSendTask*>(msg.wParam)));
        break;
      default:
        break;
    }
    if (stop) break;
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  CloseTaskQueue();
  // The last touch of the object: the destructor may free it right after.
  SetEvent(stop_event_.get());
}

bool ImManagerImpl::PostTask(UINT message, WPARAM param) {
  // posts_in_progress_ tells the end of the task loop that a post may still
  // land in the queue; it is raised before queue_closed_ is read.
  ++posts_in_progress_;
  const DWORD thread_id = task_thread_id_;
  const bool posted =
      thread_id != 0 && !queue_closed_ && PostThreadMessageW(thread_id, message, param, 0) != FALSE;
  --posts_in_progress_;
  return posted;
}

void ImManagerImpl::CloseTaskQueue() {
  // From here every post fails and its caller keeps what it meant to send.
  // A post that found the queue open is waited for, so that its record is
  // in the queue for the sweep below.
  queue_closed_ = true;
  while (posts_in_progress_ != 0) SwitchToThread();
  // Send records queued behind the stop have no handler left.
  MSG msg;
  while (PeekMessageW(&msg, nullptr, IMTask_SendWhiteBoardData, IMTask_SendWhiteBoardData, PM_REMOVE))
    delete reinterpret_cast<ImSendTask*>(msg.wParam);
}

ImManagerImpl::Credentials ImManagerImpl::CopyCredentials() {
  base::AutoLock hold(strings_lock_);
  return Credentials{group_id_, usr_id_, app_id_, account_type_, usr_sign_, config_path_};
}

void ImManagerImpl::DeliverImEvent(int event, int code, const char* desc) {
  ImManagerEvent* callback = event_callback_;
  if (callback) callback->OnImEvent(event, code, OrEmpty(desc));
}

void ImManagerImpl::DeliverImEventLocked(int event, int code, const char* desc) {
  base::AutoLock hold(event_lock_);
  ImManagerEvent* callback = event_callback_;
  if (callback) callback->OnImEvent(event, code, OrEmpty(desc));
}

// ---- simple operations ----

void ImManagerImpl::SetEventCallback(ImManagerEvent* callback) {
  Log(L"SetEventCallback:0x%x", PointerBits(callback));
  base::AutoLock hold(event_lock_);
  event_callback_ = callback;
}

void ImManagerImpl::SetConfigPath(const std::string& path) {
  base::AutoLock hold(strings_lock_);
  config_path_ = path;
}

const char* ImManagerImpl::GetUsrId() { return usr_id_.c_str(); }

// ---- SDK set-up ----

bool ImManagerImpl::Initialize(const std::string& app_id, const std::string& account_type) {
  Log(L"Initialize:app_id:%s, account_type:%s", Wide(app_id).c_str(), Wide(account_type).c_str());
  std::string config = BuildInitConfigJson(CopyCredentials().config_path);
  const int64_t sdk_app_id = std::atoi(app_id.c_str());
  if (TIMInit(static_cast<uint64_t>(sdk_app_id), config.c_str()) != 0) {
    Log(L"Initialize failed!");
    return false;
  }
  is_initialized_ = true;
  RegisterTIMCallbacks();
  TIMSDKConfig();
  Log(L"Initialize finish");
  return true;
}

void ImManagerImpl::UnInitialize() {
  if (is_initialized_) {
    Log(L"UnInitialize");
    UnregisterTIMCallbacks();
    TIMUninit();
  }
  is_initialized_ = false;
}

void ImManagerImpl::RegisterTIMCallbacks() {
  TIMSetNetworkStatusListenerCallback(&OnTIMNetworkStatusCallback, this);
  TIMSetKickedOfflineCallback(&OnTIMKickedOfflineCallback, this);
  TIMSetUserSigExpiredCallback(&OnTIMUserSigExpiredCallback, this);
  TIMSetGroupTipsEventCallback(&OnTIMGroupTipsCallback, this);
}

void ImManagerImpl::UnregisterTIMCallbacks() {
  TIMSetNetworkStatusListenerCallback(nullptr, nullptr);
  TIMSetKickedOfflineCallback(nullptr, nullptr);
  TIMSetUserSigExpiredCallback(nullptr, nullptr);
  TIMSetGroupTipsEventCallback(nullptr, nullptr);
}

std::string ImManagerImpl::BuildInitConfigJson(const std::string& config_path) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  if (!config_path.empty()) {
    // Always a backslash, whatever the path ends with.
    std::string file = config_path + "\\imconfig";
    writer.Key("sdk_config_config_file_path");
    writer.String(file.c_str(), static_cast<rapidjson::SizeType>(file.size()));
  }
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::string ImManagerImpl::BuildSetConfigJson() {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("set_config_is_log_output_console");
  writer.Bool(false);
  writer.Key("set_config_callback_log_level");
  writer.Int(1);
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

void ImManagerImpl::TIMSDKConfig() {
  Log(L"TIMSDKConfig");
  TIMSetLogCallback(&OnTIMLogCallback, nullptr);
  std::string config = BuildSetConfigJson();
  if (TIMSetConfig(config.c_str(), &OnTIMSetConfigCallback, this) != 0) Log(L"TIMSetConfig failed!");
}

void ImManagerImpl::HandleTIMSetConfigCallback(int code, const char* desc) {
  if (code != 0) {
    Log(L"TIMSetConfig callback:error_code=%d, error_desc=%s.failed!", code, Wide(desc).c_str());
    DeliverImEvent(IMEvent_SetConfig, code, desc);
  } else {
    Log(L"TIMSetConfig TIMSetConfig:success_code=%d, success_desc=%s", code, Wide(desc).c_str());
  }
}

void ImManagerImpl::OnTIMLogCallback(int32_t, const char* text, const void*) {
  Util::Log::DoTimLog(base::Utf8ToWide(text).c_str());
}

// ---- login and group ----

bool ImManagerImpl::LogInAndJoinGroup(const std::string& app_id, const std::string& account_type,
                                      const std::string& usr_id, const std::string& usr_sign,
                                      const std::string& group_id) {
  need_join_group_ = true;
  {
    base::AutoLock hold(strings_lock_);
    group_id_ = group_id;
  }
  LogIn(app_id, account_type, usr_id, usr_sign);
  return true;
}

bool ImManagerImpl::LogIn(const std::string& app_id, const std::string& account_type,
                          const std::string& usr_id, const std::string& usr_sign) {
  Log(L"LogIn:app_id:%s, account_type:%s, usr_id:%s, usr_sign:%s", Wide(app_id).c_str(),
      Wide(account_type).c_str(), Wide(usr_id).c_str(), Wide(usr_sign).c_str());
  ClearCaches();
  {
    base::AutoLock hold(strings_lock_);
    usr_id_ = usr_id;
    app_id_ = app_id;
    account_type_ = account_type;
    usr_sign_ = usr_sign;
  }
  if (task_thread_id_ == 0) {
    DWORD thread_id = 0;
    base::ScopedHandle thread(base::StartThread(&TaskThreadEntry, this, &thread_id));
    if (!thread.get()) {
      Log(L"CreateThread failed!");
      return false;
    }
    WaitForSingleObject(ready_event_.get(), INFINITE);
    // Published only once the queue exists, so no post is ever lost.
    task_thread_id_ = thread_id;
  }
  PostTask(IMTask_Login);
  return true;
}

void ImManagerImpl::ClearCaches() {
  std::list<std::unique_ptr<CachedWhiteBoardMsg>> received;
  {
    base::AutoLock hold(whiteboard_lock_);
    received.swap(recv_cache_);
  }
  received.clear();
  std::list<std::unique_ptr<ImSendTask>> queued;
  {
    base::AutoLock hold(queue_lock_);
    queued.swap(pending_sends_);
  }
  queued.clear();
}

void ImManagerImpl::ReLogIn() {
  if (task_thread_id_ == 0) return;
  PostTask(IMTask_Login);
}

void ImManagerImpl::OnLoginTask() {
  Log(L"OnLoginTask");
  Credentials credentials = CopyCredentials();
  if (!Initialize(credentials.app_id, credentials.account_type)) {
    DeliverImEvent(IMEvent_Login, -1, "initialize failed!");
    return;
  }
  if (!is_logged_in_) {
    TIMLogin(credentials.usr_id.c_str(), credentials.usr_sign.c_str(), &OnTIMLoginCallback, this);
  } else {
    JoinGroupTask();
  }
}

void ImManagerImpl::HandleTIMLoginCallback(int code, const char* desc) {
  if (code != 0) {
    is_logged_in_ = false;
    Log(L"TIMLogin callback:error_code=%d, error_desc=%s.failed!", code, Wide(desc).c_str());
    DeliverImEvent(IMEvent_Login, code, desc);
    const int attempts_before = login_retry_count_.fetch_add(1);
    if (attempts_before < 3) {
      Log(L"try login %d", attempts_before + 1);
      PostTask(IMTask_Login);
    } else {
      login_retry_count_ = 0;
    }
    return;
  }
  login_retry_count_ = 0;
  is_logged_in_ = true;
  Log(L"TIMLogin callback:success_code=%d, success_desc=%s", code, Wide(desc).c_str());
  DeliverImEvent(IMEvent_Login, 0, "login success");
  if (need_join_group_) JoinGroupTask();
}

void ImManagerImpl::JoinGroupTask() {
  std::string group_id = CopyCredentials().group_id;
  Log(L"JoinGroupTask:group id:%s", Wide(group_id).c_str());
  if (TIMGroupJoin(group_id.c_str(), "back", &OnTIMGroupJoinCallback, this) != 0) {
    DeliverImEvent(IMEvent_JoinGroup, -1, "failed");
  }
}

void ImManagerImpl::HandleTIMGroupJoinCallback(int code, const char* desc) {
  if (code == 0 || code == TIM_ERR_ALREADY_GROUP_MEMBER) {
    Log(L"JoinGroup callback:succes_code=%d, success_desc=%s", code, Wide(desc).c_str());
    TIMAddRecvNewMsgCallback(&OnTIMRecvNewMsgCallback, this);
    EnterGroup();
    DeliverImEvent(IMEvent_JoinGroup, 0, "success");
    FlushPendingSends();
    return;
  }
  Log(L"JoinGroup callback:error_code=%d, error_desc=%s.failed!", code, Wide(desc).c_str());
  DeliverImEvent(IMEvent_JoinGroup, code, desc);
}

void ImManagerImpl::LogoutAndQuitGroup() {
  Log(L"LogoutAndQuitGroup:group id:%s", Wide(CopyCredentials().group_id).c_str());
  need_logout_ = false;
  PostTask(IMTask_Logout);
}

void ImManagerImpl::OnLogoutTask() {
  Log(L"OnLogoutTask");
  QuitGroupTask();
}

void ImManagerImpl::QuitGroupTask() {
  std::string group_id = CopyCredentials().group_id;
  Log(L"QuitGroupTask:group id:%s", Wide(group_id).c_str());
  LeaveGroup();
  TIMGroupQuit(group_id.c_str(), &OnTIMGroupQuitCallback, this);
}

void ImManagerImpl::HandleTIMGroupQuitCallback(int code, const char* desc) {
  if (code != 0) {
    Log(L"QuitGroup callback:error_code=%d, error_desc=%s.failed!", code, Wide(desc).c_str());
    DeliverImEventLocked(IMEvent_QuitGroup, code, desc);
  } else {
    Log(L"QuitGroup callback:succes_code=%d", code);
    DeliverImEventLocked(IMEvent_QuitGroup, 0, "success");
  }
  if (need_logout_) LogOut();
}

void ImManagerImpl::LogOut() {
  Log(L"LogOut:group id:%s", Wide(CopyCredentials().group_id).c_str());
  is_initialized_ = false;
  is_logged_in_ = false;
  LeaveGroup();
  need_join_group_ = false;
  TIMLogout(&OnTIMLogoutCallback, this);
}

void ImManagerImpl::HandleTIMLogoutCallback(int code, const char* desc) {
  if (code != 0) {
    Log(L"TIMLogout callback:error_code=%d, error_desc=%s", code, Wide(desc).c_str());
    DeliverImEvent(IMEvent_Logout, code, desc);
  } else {
    Log(L"TIMLogout callback:success_code=%d", code);
    DeliverImEvent(IMEvent_Logout, 0, "success");
  }
}

// ---- listeners ----

void ImManagerImpl::HandleTIMNetworkStatusListenerCallback(int status, int code, const char* desc) {
  base::AutoLock hold(event_lock_);
  ImManagerEvent* callback = event_callback_;
  if (!callback) return;
  switch (status) {
    case kTIMConnected:
      callback->OnImEvent(IMEvent_Connected, code, OrEmpty(desc));
      Log(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Connected");
      break;
    case kTIMDisconnected:
    case kTIMConnectFailed:
      callback->OnImEvent(IMEvent_Disconnected, code, OrEmpty(desc));
      Log(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Disconnected");
      break;
    case kTIMConnecting:
      callback->OnImEvent(IMEvent_Connecting, code, OrEmpty(desc));
      Log(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Connecting");
      break;
    default:
      break;
  }
}

void ImManagerImpl::HandleTIMKickedOffline() {
  is_logged_in_ = false;
  LeaveGroup();
  DeliverImEventLocked(IMEvent_KickedOffline, 0, "");
}

void ImManagerImpl::HandleTIMUserSigExpired() { DeliverImEvent(IMEvent_UserSigExpired, -1, ""); }

// ---- the road back from the SDK ----

namespace {

ImManagerImpl* Manager(const void* user_data) {
  return static_cast<ImManagerImpl*>(const_cast<void*>(user_data));
}

}  // namespace

void ImManagerImpl::OnTIMLoginCallback(int32_t code, const char* desc, const char*, const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMLoginCallback(code, desc);
}

void ImManagerImpl::OnTIMLogoutCallback(int32_t code, const char* desc, const char*, const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMLogoutCallback(code, desc);
}

void ImManagerImpl::OnTIMGroupJoinCallback(int32_t code, const char* desc, const char*,
                                           const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMGroupJoinCallback(code, desc);
}

void ImManagerImpl::OnTIMGroupQuitCallback(int32_t code, const char* desc, const char*,
                                           const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMGroupQuitCallback(code, desc);
}

void ImManagerImpl::OnTIMSetConfigCallback(int32_t code, const char* desc, const char*,
                                           const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMSetConfigCallback(code, desc);
}

void ImManagerImpl::OnTIMNetworkStatusCallback(int32_t status, int32_t code, const char* desc,
                                               const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMNetworkStatusListenerCallback(status, code, desc);
}

void ImManagerImpl::OnTIMKickedOfflineCallback(const void* user_data) {
  Log(L"OnTIMKickedOfflineCallback");
  if (user_data) Manager(user_data)->HandleTIMKickedOffline();
}

void ImManagerImpl::OnTIMUserSigExpiredCallback(const void* user_data) {
  Log(L"OnTIMUserSigExpiredCallback");
  if (user_data) Manager(user_data)->HandleTIMUserSigExpired();
}

void ImManagerImpl::OnTIMGroupTipsCallback(const char*, const void*) {}

void ImManagerImpl::OnTIMRecvNewMsgCallback(const char* json, const void* user_data) {
  if (user_data) Manager(user_data)->HandleTIMRecvNewMsgCallback(json);
}

void ImManagerImpl::OnTIMSendMsgCallback(int32_t code, const char* desc, const char*, const void* user_data) {
  if (!user_data) return;
  ImSendTask* task = static_cast<ImSendTask*>(const_cast<void*>(user_data));
  task->manager->HandleTIMSendMsgCallback(task, code, desc);
}
