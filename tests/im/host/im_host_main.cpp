// A host program built against include/ alone: logs in, joins, sends
// whiteboard data, receives the peer's copy and leaves, through whatever
// imsdk.dll lies beside it. Exit code 0 when every step arrived in time.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "im_manager.h"

namespace {

class Host : public ImManagerEvent, public WhiteBoardEvent {
 public:
  Host() : changed_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) { InitializeSRWLock(&lock_); }
  ~Host() override { CloseHandle(changed_); }

  void OnImEvent(int event, int code, const char* desc) override {
    std::printf("event %d code %d desc \"%s\"\n", event, code, desc);
    AcquireSRWLockExclusive(&lock_);
    if (event == IMEvent_JoinGroup && code == 0) joined_ = true;
    if (event == IMEvent_QuitGroup && code == 0) quit_ = true;
    if (event == IMEvent_SendGroupCustom && code == 0) ++sent_;
    ReleaseSRWLockExclusive(&lock_);
    SetEvent(changed_);
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}

  void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data, int length) override {
    std::printf("whiteboard data from %s in %s: %.*s\n", sender, group_id, length, data ? data : "");
    AcquireSRWLockExclusive(&lock_);
    received_.assign(data ? data : "", data ? length : 0);
    received_from_ = sender;
    ReleaseSRWLockExclusive(&lock_);
    SetEvent(changed_);
  }
  void OnSendWhiteBoardDataResult(int code, const char* desc, void* user_data) override {
    std::printf("send result %d \"%s\" %p\n", code, desc, user_data);
  }

  // Waits until `done` holds, at most 10 s.
  template <typename Done>
  bool WaitFor(Done done) {
    const DWORD start = GetTickCount();
    for (;;) {
      AcquireSRWLockExclusive(&lock_);
      bool ok = done();
      ReleaseSRWLockExclusive(&lock_);
      if (ok) return true;
      if (GetTickCount() - start > 10000) return false;
      WaitForSingleObject(changed_, 100);
    }
  }

  bool joined_ = false;
  bool quit_ = false;
  int sent_ = 0;
  std::string received_;
  std::string received_from_;

 private:
  HANDLE changed_;
  SRWLOCK lock_;
};

int Fail(const char* step) {
  std::printf("FAILED: %s\n", step);
  ImManager::DestroyImManagerInstance();
  return 1;
}

}  // namespace

int main() {
  Host host;
  ImManager* im = ImManager::GetImManagerInstance();
  im->SetEventCallback(&host);
  im->SetWhiteBoardCallback(&host);
  im->LogInAndJoinGroup("1400000001", "36862", "host-user", "host-sig", "whiteboard-room");
  if (!host.WaitFor([&] { return host.joined_; })) return Fail("join");
  const char stroke[] = "{\"shape\":\"line\",\"points\":[1,2,3,4]}";
  im->SendWhiteBoardData(stroke, static_cast<int>(std::strlen(stroke)), &host);
  if (!host.WaitFor([&] { return host.sent_ == 1; })) return Fail("send");
  if (!host.WaitFor([&] { return !host.received_.empty(); })) return Fail("receive");
  if (host.received_ != stroke || host.received_from_ == "host-user") return Fail("received data");
  im->LogoutAndQuitGroup();
  if (!host.WaitFor([&] { return host.quit_; })) return Fail("quit");
  ImManager::DestroyImManagerInstance();
  std::printf("OK\n");
  return 0;
}
