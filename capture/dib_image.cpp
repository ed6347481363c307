#include "roomcore/dib_image.h"

#include <algorithm>
#include <cstring>

#include "capture/scoped_gdi.h"

static_assert(sizeof(BITMAPINFOHEADER) == 40, "the bitmap header is 40 bytes");
static_assert(sizeof(BITMAPINFO) == 44, "a header and one colour entry");
static_assert(sizeof(BITMAPFILEHEADER) == 14, "the file header is 14 bytes");
static_assert(sizeof(BITMAP) == (sizeof(void*) == 8 ? 32 : 24), "GetObjectW reads the whole record");

void InitBitMapInfoHeader(int width, int height, bool top_down, int bit_count, BITMAPINFOHEADER* header) {
  std::memset(header, 0, sizeof(*header));
  header->biSize = sizeof(BITMAPINFOHEADER);
  header->biWidth = width;
  header->biHeight = top_down ? -height : height;
  header->biPlanes = 1;
  header->biBitCount = static_cast<WORD>(bit_count);
  header->biCompression = BI_RGB;
  header->biSizeImage = static_cast<DWORD>(width) * static_cast<DWORD>(height) * 4;
}

void InitBitMapInfo(int width, int height, bool top_down, int bit_count, BITMAPINFO* info) {
  InitBitMapInfoHeader(width, height, top_down, bit_count, &info->bmiHeader);
  std::memset(&info->bmiColors[0], 0, sizeof(info->bmiColors[0]));
}

DibImage::DibImage(const BITMAPINFO* source_info, const uint8_t* source_bits) : info(nullptr), bits(nullptr) {
  CopyFrom(source_info, source_bits);
}

DibImage::DibImage(const DibImage& other) : info(nullptr), bits(nullptr) { CopyFrom(other.info, other.bits); }

// Copying the two pointers would leave two owners of each block. A deep copy
// keeps one owner per block and lets a host hold images by value.
DibImage& DibImage::operator=(const DibImage& other) {
  if (this != &other) {
    Clear();
    CopyFrom(other.info, other.bits);
  }
  return *this;
}

DibImage::~DibImage() { Clear(); }

void DibImage::CopyFrom(const BITMAPINFO* source_info, const uint8_t* source_bits) {
  if (!source_info || !source_bits) return;
  info = new BITMAPINFO;
  std::memcpy(info, source_info, sizeof(BITMAPINFO));
  const DWORD size = info->bmiHeader.biSizeImage;
  bits = new uint8_t[size];
  std::memcpy(bits, source_bits, size);
}

void DibImage::Clear() {
  delete info;
  info = nullptr;
  delete[] bits;
  bits = nullptr;
}

namespace {

// The depth of the display right now. Without a display context, or with a
// depth no bitmap file can have, the file gets 4-byte pixels.
int DisplayDepth() {
  capture::ScopedCreateDC dc(CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr));
  if (!dc) return 32;
  const int depth = GetDeviceCaps(dc.get(), BITSPIXEL) * GetDeviceCaps(dc.get(), PLANES);
  switch (depth) {
    case 1:
    case 4:
    case 8:
    case 16:
    case 24:
    case 32:
      return depth;
    default:
      return 32;
  }
}

// What GetDIBits may write: a header with a full colour table at 8 bits or
// fewer.
struct ReadOutInfo {
  BITMAPINFOHEADER header;
  RGBQUAD colors[256];
};

}  // namespace

bool DibImage::Save(const std::wstring& path) const {
  if (!info || !bits) return false;
  const BITMAPINFOHEADER& source = info->bmiHeader;
  const int64_t width = source.biWidth;
  const int64_t height = source.biHeight < 0 ? -static_cast<int64_t>(source.biHeight) : source.biHeight;
  const int planes = source.biPlanes;
  const int depth = source.biBitCount;
  // CreateBitmap reads lines padded to 16 bits from `bits`, which holds
  // biSizeImage bytes: a header that promises more pixels than that is refused
  // rather than read past the end of the block.
  if (width <= 0 || height <= 0 || planes <= 0 || depth <= 0 || depth > 32) return false;
  const int64_t line_bytes = (width * depth * planes + 15) / 16 * 2;
  if (line_bytes * height > static_cast<int64_t>(source.biSizeImage)) return false;

  // Device-dependent bitmaps run top line first, as every picture of this
  // library does.
  capture::ScopedBitmap bitmap(CreateBitmap(static_cast<int>(width), static_cast<int>(height),
                                            static_cast<UINT>(planes), static_cast<UINT>(depth), bits));
  if (!bitmap) return false;

  const int file_depth = DisplayDepth();

  BITMAP object = {};
  GetObjectW(bitmap.get(), sizeof(BITMAP), &object);

  ReadOutInfo read_out = {};
  read_out.header.biSize = sizeof(BITMAPINFOHEADER);
  read_out.header.biWidth = object.bmWidth;
  read_out.header.biHeight = object.bmHeight;  // positive: the file runs bottom line first
  read_out.header.biPlanes = 1;
  read_out.header.biBitCount = static_cast<WORD>(file_depth);

  // The file counts no line padding and no colour table. The read-out pads
  // each line to 4 bytes, so the block is sized for whichever is larger.
  const uint64_t bm_width = object.bmWidth > 0 ? object.bmWidth : 0;
  const uint64_t bm_height = object.bmHeight > 0 ? object.bmHeight : 0;
  const DWORD image_size = static_cast<DWORD>(bm_width * bm_height * file_depth / 8);
  const uint64_t read_size = (bm_width * file_depth + 31) / 32 * 4 * bm_height;
  const SIZE_T block_size =
      sizeof(BITMAPINFOHEADER) + static_cast<SIZE_T>(std::max<uint64_t>(image_size, read_size));

  capture::ScopedGlobal block(GlobalAlloc(GHND, block_size));
  if (!block) return false;
  capture::ScopedGlobalLock locked(block.get());
  auto* data = static_cast<uint8_t*>(locked.get());
  if (!data) return false;

  {
    capture::ScopedGetDC screen(nullptr);
    auto* palette = static_cast<HPALETTE>(GetStockObject(DEFAULT_PALETTE));
    capture::ScopedSelectPalette selected(screen.get(), palette);
    GetDIBits(screen.get(), bitmap.get(), 0, static_cast<UINT>(object.bmHeight),
              data + sizeof(BITMAPINFOHEADER), reinterpret_cast<BITMAPINFO*>(&read_out), DIB_RGB_COLORS);
  }
  // The header as the read-out completed it; its colour table isn't written.
  std::memcpy(data, &read_out.header, sizeof(BITMAPINFOHEADER));

  capture::ScopedFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file.valid()) return false;

  BITMAPFILEHEADER file_header = {};
  file_header.bfType = 0x4D42;  // "BM"
  file_header.bfSize = static_cast<DWORD>(sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER) + image_size);
  file_header.bfOffBits = sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER);
  DWORD written = 0;
  // A short write isn't reported: the caller learns only whether the file
  // could be opened.
  WriteFile(file.get(), &file_header, sizeof(file_header), &written, nullptr);
  WriteFile(file.get(), data, static_cast<DWORD>(sizeof(BITMAPINFOHEADER) + image_size), &written, nullptr);
  return true;
}
