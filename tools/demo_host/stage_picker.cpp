// Stage 2: the share picker. Lists the windows a picker offers, saves each
// one's snapshot picture and icon, and a contact sheet of the pictures.
#include <algorithm>
#include <cctype>
#include <iterator>
#include <memory>

#include "demo.h"
#include "roomcore/dib_image.h"
#include "roomcore/picker.h"

namespace {

// Fits `image` into the cell (x, y, w, h) of the sheet's DC, aspect kept.
void DrawIntoCell(HDC dc, const DibImage& image, int x, int y, int w, int h) {
  const BITMAPINFO* info = image.bitmap_info();
  if (!info || !image.bits_data()) return;
  const int iw = info->bmiHeader.biWidth;
  const int ih = std::abs(info->bmiHeader.biHeight);
  if (iw <= 0 || ih <= 0) return;
  const double scale = std::min(static_cast<double>(w) / iw, static_cast<double>(h) / ih);
  const int dw = std::max(1, static_cast<int>(iw * scale));
  const int dh = std::max(1, static_cast<int>(ih * scale));
  SetStretchBltMode(dc, HALFTONE);
  StretchDIBits(dc, x + (w - dw) / 2, y + (h - dh) / 2, dw, dh, 0, 0, iw, ih, image.bits_data(), info,
                DIB_RGB_COLORS, SRCCOPY);
}

bool SaveContactSheet(const std::vector<std::unique_ptr<DibImage>>& pictures, const std::wstring& path) {
  const int columns = 4, cell_w = 320, cell_h = 240, gap = 8;
  const int count = static_cast<int>(pictures.size());
  const int rows = std::max(1, (count + columns - 1) / columns);
  const int width = columns * (cell_w + gap) + gap;
  const int height = rows * (cell_h + gap) + gap;
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  void* bits = nullptr;
  HDC screen = GetDC(nullptr);
  HDC dc = CreateCompatibleDC(screen);
  HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  ReleaseDC(nullptr, screen);
  if (!dc || !bitmap || !bits) {
    if (bitmap) DeleteObject(bitmap);
    if (dc) DeleteDC(dc);
    return false;
  }
  HGDIOBJ old = SelectObject(dc, bitmap);
  RECT all = {0, 0, width, height};
  HBRUSH background = CreateSolidBrush(RGB(32, 32, 32));
  FillRect(dc, &all, background);
  DeleteObject(background);
  for (int i = 0; i < count; ++i) {
    DrawIntoCell(dc, *pictures[i], gap + (i % columns) * (cell_w + gap), gap + (i / columns) * (cell_h + gap),
                 cell_w, cell_h);
  }
  GdiFlush();
  DibImage sheet(&info, static_cast<const uint8_t*>(bits));
  const bool saved = sheet.Save(path);
  SelectObject(dc, old);
  DeleteObject(bitmap);
  DeleteDC(dc);
  return saved;
}

std::string SafeName(const std::wstring& title, int index) {
  std::string name = "window_" + std::to_string(index);
  std::string t = Narrow(title);
  if (!t.empty()) name += "_";
  for (char c : t.substr(0, 40)) name += (std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
  return name;
}

}  // namespace

bool RunPicker(const std::wstring& out, Results* results) {
  const std::wstring folder = out + L"\\windows";
  CreateDirectoryW(folder.c_str(), nullptr);
  TopWindowEnum* windows = TopWindowEnum::Create();
  const int count = windows->EnumerateWindows();
  results->windows_listed = count;
  Print("picker: %d window(s) offered", count);
  std::vector<std::unique_ptr<DibImage>> pictures;
  for (int i = 0; i < count; ++i) {
    HWND window = windows->GetWindowAt(i);
    WindowSnapshot* snapshot = WindowSnapshot::Create(window);
    if (!snapshot) continue;
    const std::string name = SafeName(snapshot->GetTitle(), i);
    DibImage* picture = snapshot->GetPicture();
    DibImage* icon = snapshot->GetIcon();
    int width = 0, height = 0;
    if (picture && picture->bitmap_info()) {
      width = picture->bitmap_info()->bmiHeader.biWidth;
      height = std::abs(picture->bitmap_info()->bmiHeader.biHeight);
    }
    Print("picker:   %d: \"%s\" (%s, pid %u) picture %dx%d%s", i, Narrow(snapshot->GetTitle()).c_str(),
          Narrow(snapshot->GetProcessName()).c_str(), snapshot->GetProcessId(), width, height,
          icon ? ", icon" : "");
    bool saved = false;
    if (picture && picture->Save(folder + L"\\" + Wide(name) + L".bmp")) {
      pictures.push_back(std::make_unique<DibImage>(*picture));
      saved = true;
    }
    if (icon) icon->Save(folder + L"\\" + Wide(name) + L"_icon.bmp");
    results->snapshots_saved += saved ? 1 : 0;
    WindowSnapshot::Release(snapshot);
  }
  TopWindowEnum::Release(windows);
  const bool sheet = SaveContactSheet(pictures, out + L"\\contact_sheet.bmp");
  Print("picker: %d snapshot(s) saved; contact sheet %s", results->snapshots_saved,
        sheet ? "saved" : "FAILED");
  const std::string shown = DisplayPath(folder);
  results->outputs.push_back(shown + (shown.front() == '/' ? "/" : "\\") + "*.bmp");
  results->outputs.push_back(DisplayPath(out + L"\\contact_sheet.bmp"));
  if (count < static_cast<int>(std::size(kDemoWindows))) {
    results->failures.push_back("picker: fewer windows listed than the demo opened");
    return false;
  }
  if (!sheet || results->snapshots_saved == 0) {
    results->failures.push_back("picker: no snapshot or contact sheet saved");
    return false;
  }
  return true;
}
