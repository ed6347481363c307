// The report: how many frames the stand-in's pull recorded, and the summary
// table that the demo prints and writes to summary.txt (scripts/demo.sh's
// report page shows it too, and reads the pulled count from it).
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "demo.h"

// Frames in the Y4M file the stand-in wrote: its size against one frame's.
int CountY4mFrames(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return -1;
  char header[128] = {};
  DWORD read = 0;
  ReadFile(file, header, sizeof(header) - 1, &read, nullptr);
  LARGE_INTEGER size = {};
  GetFileSizeEx(file, &size);
  CloseHandle(file);
  const char* end = std::strchr(header, '\n');
  int width = 0, height = 0;
  const char* w = std::strstr(header, " W");
  const char* h = std::strstr(header, " H");
  if (!end || !w || !h) return -1;
  width = std::atoi(w + 2);
  height = std::atoi(h + 2);
  const int64_t frame = 6 + static_cast<int64_t>(width) * height + 2 * ((width + 1) / 2) * ((height + 1) / 2);
  return static_cast<int>((size.QuadPart - (end - header + 1)) / frame);
}

std::string SummaryText(const Results& r) {
  std::string text;
  char line[256];
  auto add = [&](const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    text += line;
    text += "\n";
  };
  auto share = [&](const char* name, const ShareResult& s) {
    add("%-8s captured %5d  pushed %5d  fps %5.1f  cpu/frame %6.2f ms  interval p50 %6.1f ms  p99 %6.1f ms",
        name, s.captured, s.pushed, s.seconds > 0 ? s.captured / s.seconds : 0.0, s.cpu_ms_per_frame,
        s.interval_p50_ms, s.interval_p99_ms);
  };
  add("== summary");
  add("remote   frames received from the remote user: %d", r.remote_frames);
  add("picker   windows listed: %d, snapshots saved: %d", r.windows_listed, r.snapshots_saved);
  share("display", r.display);
  share("window", r.window);
  const int pushed = r.display.pushed + r.window.pushed;
  add("stream   pushed %d, pulled %d, dropped %d", pushed, r.y4m_frames,
      r.y4m_frames >= 0 ? pushed - r.y4m_frames : -1);
  std::string levels;
  int max_level = 0;
  for (int v : r.levels) {
    levels += (levels.empty() ? "" : " ") + std::to_string(v);
    max_level = std::max(max_level, v);
  }
  add("mic      levels: %s (max %d)", levels.empty() ? "none" : levels.c_str(), max_level);
  add("im       strokes sent %d, acknowledged %d, echoed %d, identical and in order %d", r.strokes_sent,
      r.strokes_acknowledged, r.strokes_echoed, r.strokes_matching);
  return text;
}
