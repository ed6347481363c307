#include "roomcore/dib_image.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "capture/dib_image_internal.h"
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
  // A size the field can't hold would wrap to a small buffer that the
  // read-out then overruns. 0 means "not given" in a bitmap header: a reader
  // works the size out from the dimensions, and the captures refuse it.
  const uint64_t bytes = capture::PictureBytes(width, height);
  header->biSizeImage = bytes <= UINT32_MAX ? static_cast<DWORD>(bytes) : 0;
}

void InitBitMapInfo(int width, int height, bool top_down, int bit_count, BITMAPINFO* info) {
  InitBitMapInfoHeader(width, height, top_down, bit_count, &info->bmiHeader);
  std::memset(&info->bmiColors[0], 0, sizeof(info->bmiColors[0]));
}

namespace {

// Bytes of pixels an image holds: biSizeImage, or, for an uncompressed
// picture that leaves it 0 as it may, its lines at 4-byte alignment.
uint64_t PixelBytes(const BITMAPINFOHEADER& header) {
  if (header.biSizeImage != 0) return header.biSizeImage;
  const int64_t width = header.biWidth;
  const int64_t height = header.biHeight < 0 ? -static_cast<int64_t>(header.biHeight) : header.biHeight;
  const int64_t bits_per_pixel =
      static_cast<int64_t>(header.biBitCount) * (header.biPlanes ? header.biPlanes : 1);
  if (width <= 0 || height <= 0 || bits_per_pixel <= 0) return 0;
  return static_cast<uint64_t>((width * bits_per_pixel + 31) / 32 * 4 * height);
}

// Both blocks copied, or neither: a header whose pixels this process can't
// address or allocate gives an empty image.
void CopyImage(const BITMAPINFO* source_info, const uint8_t* source_bits, BITMAPINFO** info, uint8_t** bits) {
  if (!source_info || !source_bits) return;
  const uint64_t size = PixelBytes(source_info->bmiHeader);
  if (size > SIZE_MAX) return;
  std::unique_ptr<BITMAPINFO> copied_info(new (std::nothrow) BITMAPINFO);
  std::unique_ptr<uint8_t[]> copied_bits(new (std::nothrow) uint8_t[static_cast<size_t>(size)]);
  if (!copied_info || !copied_bits) return;
  std::memcpy(copied_info.get(), source_info, sizeof(BITMAPINFO));
  std::memcpy(copied_bits.get(), source_bits, static_cast<size_t>(size));
  *info = copied_info.release();
  *bits = copied_bits.release();
}

DeviceCapsFunction g_device_caps = &GetDeviceCaps;

}  // namespace

namespace capture {
void SetDeviceCapsForTesting(DeviceCapsFunction function) {
  g_device_caps = function ? function : &GetDeviceCaps;
}
}  // namespace capture

DibImage::DibImage(const BITMAPINFO* source_info, const uint8_t* source_bits) : info(nullptr), bits(nullptr) {
  CopyImage(source_info, source_bits, &info, &bits);
}

DibImage::DibImage(const DibImage& other) : info(nullptr), bits(nullptr) {
  CopyImage(other.info, other.bits, &info, &bits);
}

// Copying the two pointers would leave two owners of each block. A deep copy
// keeps one owner per block and lets a host hold images by value.
DibImage& DibImage::operator=(const DibImage& other) {
  if (this != &other) {
    Clear();
    CopyImage(other.info, other.bits, &info, &bits);
  }
  return *this;
}

DibImage::~DibImage() { Clear(); }

void DibImage::Clear() {
  delete info;
  info = nullptr;
  delete[] bits;
  bits = nullptr;
}

namespace {

// The depth of the display right now, planes included. Without a display
// context the file gets the 4-byte pixels of the library's own pictures.
int DisplayDepth() {
  capture::ScopedCreateDC dc(CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr));
  if (!dc) return 32;
  const int depth = g_device_caps(dc.get(), BITSPIXEL) * g_device_caps(dc.get(), PLANES);
  return depth > 0 ? depth : 32;
}

// What GetDIBits may write: a header with a full colour table at 8 bits or
// fewer.
struct ReadOutInfo {
  BITMAPINFOHEADER header;
  RGBQUAD colors[256];
};

// More than any bitmap that CreateBitmap makes.
constexpr uint64_t kMaxBitmapBytes = uint64_t(1) << 31;

}  // namespace

bool DibImage::Save(const std::wstring& path) const {
  if (!info || !bits) return false;
  const BITMAPINFOHEADER& source = info->bmiHeader;
  const int64_t width = source.biWidth;
  const int64_t height = source.biHeight < 0 ? -static_cast<int64_t>(source.biHeight) : source.biHeight;
  const int planes = source.biPlanes;
  const int depth = source.biBitCount;
  // CreateBitmap reads lines padded to 16 bits. When the header promises
  // more than the block holds, the bitmap is made from a copy padded with
  // black instead of reading past the block; beyond any size a bitmap can
  // have, it is made without pixels and fails on its own.
  const uint8_t* pixels = bits;
  std::unique_ptr<uint8_t[]> padded;
  if (width > 0 && height > 0 && planes > 0 && depth > 0) {
    const uint64_t needed = static_cast<uint64_t>((width * depth * planes + 15) / 16 * 2 * height);
    const uint64_t held = PixelBytes(source);
    if (needed > held) {
      pixels = nullptr;
      if (needed <= kMaxBitmapBytes && needed <= SIZE_MAX) {
        padded.reset(new (std::nothrow) uint8_t[static_cast<size_t>(needed)]());
        if (!padded) return false;
        std::memcpy(padded.get(), bits, static_cast<size_t>(held));
        pixels = padded.get();
      }
    }
  }

  // Device-dependent bitmaps run top line first, as every picture of this
  // library does.
  capture::ScopedBitmap bitmap(CreateBitmap(static_cast<int>(width), static_cast<int>(height),
                                            static_cast<UINT>(planes), static_cast<UINT>(depth), pixels));
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
  const uint64_t file_image_size = bm_width * bm_height * static_cast<uint64_t>(file_depth) / 8;
  const uint64_t read_size = (bm_width * file_depth + 31) / 32 * 4 * bm_height;
  const uint64_t block_bytes = sizeof(BITMAPINFOHEADER) + std::max<uint64_t>(file_image_size, read_size);
  // The file's size field is 32 bits wide.
  if (file_image_size > UINT32_MAX - sizeof(BITMAPFILEHEADER) - sizeof(BITMAPINFOHEADER) ||
      block_bytes > SIZE_MAX) {
    return false;
  }
  const DWORD image_size = static_cast<DWORD>(file_image_size);
  const SIZE_T block_size = static_cast<SIZE_T>(block_bytes);

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
