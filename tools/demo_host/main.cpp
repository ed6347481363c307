// Demo host: drives roomcore.dll the way the meeting and whiteboard
// application does, built against the installed SDK alone (include/roomcore
// and roomcore::roomcore), and leaves what a person can look at in one
// output folder. Against the stand-in SDKs it runs a scripted meeting:
//
//   1. engine    create, list devices, enter a room; a remote user appears
//                and its camera frames arrive             (stage_engine.cpp)
//   2. picker    open a few windows of its own, list the windows a share
//                picker offers, save a snapshot picture and icon of each and
//                a contact sheet of them                  (stage_picker.cpp)
//   3. display   share the display at 12 fps (DisplayCapture ->
//                PushDesktopFrame); the stand-in's pull records the stream
//   4. window    share one of its windows (WindowCapture) while moving and
//                resizing it                              (stage_share.cpp)
//   5. mic       the microphone test on the default input while a tone plays
//                                                         (stage_mic.cpp)
//   6. im        log in, join the group, send whiteboard strokes; the
//                stand-in's echo peer sends them back     (stage_im.cpp)
//
// It prints one line per stage with elapsed time and counts, a summary table
// (report.cpp) and the paths of what it wrote; it exits non-zero when a stage
// fails. scripts/demo.sh turns the raw outputs into the report page.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "demo.h"
#include "roomcore/im_manager.h"

namespace {

const char kUsage[] =
    "usage: demo_host.exe [--seconds N] [--out DIR] [--strokes N] [--help]\n"
    "\n"
    "Runs a scripted meeting against roomcore.dll and writes its results into DIR:\n"
    "  shared.y4m            the desktop stream as the SDK pulled it (1920x1080, 12 fps)\n"
    "  windows\\*.bmp         a snapshot picture and icon of every window a picker offers\n"
    "  contact_sheet.bmp     those pictures side by side\n"
    "  summary.txt           the summary table\n"
    "(scripts/demo.sh then makes shared.mp4, storyboard.png, contact_sheet.png and\n"
    "index.html of them.)\n"
    "\n"
    "  --seconds N   how long each share (display, then window) runs; default 20\n"
    "  --out DIR     the output folder; default demo-out\n"
    "  --strokes N   whiteboard strokes to send; default 40\n"
    "\n"
    "Against the stand-in SDKs the demo asks them (through their environment\n"
    "variables, unless already set) for a remote user, a pull of the custom\n"
    "stream at 30 a second into DIR\\shared.y4m, a few devices and an echo peer.\n";

void SetDefaultEnvironment(const char* name, const std::string& value) {
  char current[8];
  if (GetEnvironmentVariableA(name, current, sizeof(current)) == 0)
    SetEnvironmentVariableA(name, value.c_str());
}

bool WriteText(const std::wstring& path, const std::string& text) {
  FILE* file = _wfopen(path.c_str(), L"wb");
  if (!file) return false;
  const bool written = std::fputs(text.c_str(), file) >= 0;
  return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  StartClock();
  double seconds = 20;
  int strokes = 40;
  std::wstring out = L"demo-out";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--seconds" && i + 1 < argc) {
      seconds = std::atof(argv[++i]);
    } else if (arg == "--out" && i + 1 < argc) {
      out = Wide(argv[++i]);
    } else if (arg == "--strokes" && i + 1 < argc) {
      strokes = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "demo_host: unknown argument %s\n\n%s", arg.c_str(), kUsage);
      return 2;
    }
  }
  if (seconds <= 0 || strokes <= 0) {
    std::fprintf(stderr, "demo_host: --seconds and --strokes take positive numbers\n");
    return 2;
  }
  out = FullPath(out);
  if (!CreateDirectoryW(out.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    std::fprintf(stderr, "demo_host: cannot make the output folder %s\n", DisplayPath(out).c_str());
    return 2;
  }
  const std::wstring y4m = out + L"\\shared.y4m";
  DeleteFileW(y4m.c_str());
  SetDefaultEnvironment("LITEAV_STANDIN_DEVICES", "1");
  SetDefaultEnvironment("LITEAV_STANDIN_REMOTE_USER", "remote_peer");
  SetDefaultEnvironment("LITEAV_STANDIN_PULL_FPS", "30");
  SetDefaultEnvironment("LITEAV_STANDIN_Y4M", Narrow(y4m));
  SetDefaultEnvironment("LITEAV_STANDIN_Y4M_RATE", std::to_string(kFrameRate));
  SetDefaultEnvironment("IMSDK_STANDIN_ECHO_PEER", "peer_user");

  Results results;
  const int stages = 6;
  int stage = 0;
  auto begin = [&](const char* name) { Print("== stage %d/%d: %s", ++stage, stages, name); };

  begin("engine and room");
  RTCEngine* engine = CreaeRTCEngine();
  EngineEvents events;
  engine->Initialize(nullptr, &events);
  const bool in_room = RunEnterRoom(engine, &events, &results);

  DemoWindows demo;
  begin("share picker");
  if (!demo.Open()) {
    results.failures.push_back("picker: the demo's windows could not be opened");
  } else {
    RunPicker(out, &results);
  }

  if (in_room) engine->EnableCaptureDesktopVideo(true);
  begin("share the display");
  if (in_room) RunDisplayShare(engine, &demo, seconds, &results);
  begin("share a window");
  if (in_room && !demo.windows().empty()) RunWindowShare(engine, &demo, seconds, &results);
  if (in_room) engine->EnableCaptureDesktopVideo(false);

  begin("microphone test");
  RunMicTest(engine, &events, &results);

  results.remote_frames = events.remote_frames;
  engine->ExitRoom();
  if (in_room && !events.exited.Wait(10000)) results.failures.push_back("engine: no OnExitRoom");
  engine->UnInitialize();
  ReleaseRTCEngine();
  demo.Close();

  begin("whiteboard through the IM group");
  RunIm(strokes, &results);

  results.y4m_frames = CountY4mFrames(y4m);
  if (results.y4m_frames <= 0) results.failures.push_back("stream: no frame reached the Y4M record");
  results.outputs.insert(results.outputs.begin(), DisplayPath(y4m));
  const std::string summary = SummaryText(results);
  std::fputs(summary.c_str(), stdout);
  const std::wstring summary_path = out + L"\\summary.txt";
  if (WriteText(summary_path, summary)) results.outputs.push_back(DisplayPath(summary_path));
  std::printf("== outputs\n");
  for (const std::string& output : results.outputs) std::printf("%s\n", output.c_str());
  for (const std::string& failure : results.failures) std::printf("FAILED: %s\n", failure.c_str());
  std::printf("demo %s in %.1f s\n", results.failures.empty() ? "finished" : "FAILED", Elapsed());
  std::fflush(stdout);
  return results.failures.empty() ? 0 : 1;
}
