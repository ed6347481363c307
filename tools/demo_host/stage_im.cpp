// Stage 6: whiteboard strokes through the IM group: log in, join, send; the
// stand-in's echo peer sends every stroke back.
#include <cstdio>
#include <cstring>

#include "demo.h"
#include "roomcore/im_manager.h"

namespace {

class ImEvents : public ImManagerEvent, public WhiteBoardEvent {
 public:
  Signal logged_in, joined, quit, all_acknowledged, all_echoed;
  std::atomic<int> login_code{-1}, join_code{-1};
  std::atomic<int> acknowledged{0};
  int expected = 0;
  std::mutex mutex;
  std::vector<std::string> echoed;

  void OnImEvent(int event, int code, const char* desc) override {
    if (event == IMEvent_Login) {
      login_code = code;
      if (code == 0) logged_in.Set();
      if (code != 0) Print("im: login attempt answered %d %s", code, desc ? desc : "");
    } else if (event == IMEvent_JoinGroup) {
      join_code = code;
      joined.Set();
    } else if (event == IMEvent_QuitGroup) {
      quit.Set();
    }
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}
  void OnRecvWhiteBoardData(const char*, const char*, const char* data, int length) override {
    std::lock_guard<std::mutex> hold(mutex);
    echoed.emplace_back(data, length);
    if (static_cast<int>(echoed.size()) >= expected) all_echoed.Set();
  }
  void OnSendWhiteBoardDataResult(int code, const char*, void*) override {
    if (code == 0 && ++acknowledged >= expected) all_acknowledged.Set();
  }
};

}  // namespace

bool RunIm(int strokes, Results* results) {
  ImManager* im = ImManager::GetImManagerInstance();
  ImEvents events;
  events.expected = strokes;
  im->SetEventCallback(&events);
  im->SetWhiteBoardCallback(&events);
  Print("im: LogInAndJoinGroup");
  im->LogInAndJoinGroup("1400000001", "36862", "demo_user", "demo_signature", "whiteboard_20261123");
  bool ok = true;
  std::vector<std::string> sent;
  if (!events.logged_in.Wait(15000) || !events.joined.Wait(15000) || events.join_code != 0) {
    results->failures.push_back("im: login or join did not complete");
    ok = false;
  } else {
    Print("im: logged in as %s and joined; sending %d stroke(s)", im->GetUsrId(), strokes);
    for (int i = 0; i < strokes; ++i) {
      char stroke[160];
      std::snprintf(stroke, sizeof(stroke),
                    "{\"type\":\"stroke\",\"seq\":%d,\"points\":[[%d,%d],[%d,%d]],\"color\":\"#%06x\"}", i,
                    i * 7, i * 3, i * 7 + 40, i * 3 + 25, (i * 2654435761u) & 0xffffff);
      sent.push_back(stroke);
      im->SendWhiteBoardData(stroke, static_cast<int>(std::strlen(stroke)), nullptr);
    }
    results->strokes_sent = strokes;
    events.all_acknowledged.Wait(15000);
    events.all_echoed.Wait(15000);
    results->strokes_acknowledged = events.acknowledged;
    {
      std::lock_guard<std::mutex> hold(events.mutex);
      results->strokes_echoed = static_cast<int>(events.echoed.size());
      for (size_t i = 0; i < events.echoed.size() && i < sent.size(); ++i) {
        results->strokes_matching += events.echoed[i] == sent[i] ? 1 : 0;
      }
    }
    Print("im: %d acknowledged, %d echoed back, %d identical and in order", results->strokes_acknowledged,
          results->strokes_echoed, results->strokes_matching);
    if (results->strokes_acknowledged != strokes) {
      results->failures.push_back("im: not every stroke was acknowledged");
      ok = false;
    }
    if (results->strokes_matching != strokes) {
      results->failures.push_back("im: the echo did not return every stroke unchanged and in order");
      ok = false;
    }
    im->LogoutAndQuitGroup();
    if (!events.quit.Wait(10000)) {
      results->failures.push_back("im: no IMEvent_QuitGroup");
      ok = false;
    }
  }
  im->SetWhiteBoardCallback(nullptr);
  im->SetEventCallback(nullptr);
  ImManager::DestroyImManagerInstance();
  return ok;
}
