// The foundation's inner pieces: clock behind its seam, frames, queue, pool, text, version tables.
#include <gtest/gtest.h>

#include <vector>

#include "allocation_counter.h"
#include "base/clock_internal.h"
#include "base/frame_pool.h"
#include "base/i420_frame.h"
#include "base/system_info.h"
#include "base/text.h"
#include "roomcore/clock.h"

namespace {

DWORD g_tick = 0, g_sleep_num = 1, g_sleep_den = 1;  // Sleep(n) moves the tick by n * num / den, at least 1
std::vector<DWORD> g_sleeps;
DWORD WINAPI FakeTick() { return g_tick; }
VOID WINAPI FakeSleep(DWORD ms) {
  g_sleeps.push_back(ms);
  g_tick += std::max<DWORD>(ms * g_sleep_num / g_sleep_den, 1);
}
void ResetClock(DWORD tick, DWORD num = 1, DWORD den = 1) {
  static const base::ClockPlatform fake = {&FakeTick, &FakeSleep};
  base::SetClockPlatformForTesting(&fake);  // also forgets the last tick and the wraps
  g_tick = tick, g_sleep_num = num, g_sleep_den = den;
  g_sleeps.clear();
}
constexpr int64_t kWrap = int64_t(1) << 32;

TEST(Clock, CountsWrapsOnlyFromTheLastToTheFirstSixteenthAndSleepsInWholeMilliseconds) {
  const struct {
    std::vector<DWORD> ticks;
    int64_t last_ms;
  } wraps[] = {{{5}, 5},                                         // the first reading is never a wrap
               {{0xF0000000u, 5}, 5},                            // previous exactly 0xF0000000: no wrap
               {{0xFFFFFFF0u, 0x0FFFFFFF}, 0x0FFFFFFF},          // now exactly 0x0FFFFFFF: no wrap
               {{0xF0000001u, 0x0FFFFFFE}, kWrap + 0x0FFFFFFE},  // just inside both: a wrap
               {{1000, 999}, 999},                               // a step back shows
               {{0xFFFFFFFFu, 1, 0xFFFFFFFFu, 2}, 2 * kWrap + 2}};
  for (const auto& c : wraps) {
    ResetClock(0);
    int64_t ns = 0;
    for (DWORD tick : c.ticks) ns = (g_tick = tick, TimeNanoseconds());
    EXPECT_EQ(ns, c.last_ms * 1000000) << std::hex << c.ticks.front() << ".." << c.ticks.back();
  }
  ResetClock(1235);
  EXPECT_EQ(TimeMicroseconds(), 1235000);
  EXPECT_EQ(TimeMilliseconds(), 1235);

  const struct {
    int ms;
    DWORD start, num, den;
    std::vector<DWORD> sleeps;
    DWORD end;
  } sleeps[] = {{0, 100, 1, 1, {}, 100},                     // nothing to wait: no Sleep
                {20, 100, 1, 2, {20, 10, 5, 3, 2, 1}, 120},  // early wakes: again for what is left
                {4, 100, 3, 1, {4}, 112},                    // a late wake returns late
                {4, 0xFFFFFFFEu, 1, 1, {4}, 2}};             // across the wrap
  for (const auto& c : sleeps) {
    ResetClock(c.start, c.num, c.den);
    SleepAccurate(c.ms);
    EXPECT_EQ(g_sleeps, c.sleeps) << c.ms;
    EXPECT_EQ(g_tick, c.end) << c.ms;
  }
  EXPECT_EQ(TimeNanoseconds(), (kWrap + 2) * 1000000);
  base::SetClockPlatformForTesting(nullptr);
}

bool All(const uint8_t* p, size_t n, uint8_t value) {
  return std::count(p, p + n, value) == static_cast<ptrdiff_t>(n);
}

I420Frame* Numbered(int64_t n) {
  I420Frame* frame = CreateI420Frame(2, 2, false, 0);
  frame->timestamp = n;
  return frame;
}

// Pops everything, oldest first, by number.
std::vector<int64_t> Drain(FrameQueue& queue) {
  std::vector<int64_t> numbers;
  for (I420Frame* out = nullptr; queue.Pop(&out); FreeI420Frame(out)) numbers.push_back(out->timestamp);
  return numbers;
}

TEST(FrameQueue, FramesWithoutGapsAndAQueueThatDropsTheOldestAndLeaksNothing) {
  const struct {
    int width, height;
    bool alpha;
    uint32_t size, u, v, a, chroma_line;
  } layouts[] = {
      {1, 1, false, 3, 1, 2, 0, 1}, {5, 3, false, 27, 15, 21, 0, 3}, {4, 4, true, 40, 16, 20, 24, 2}};
  for (const auto& c : layouts) {
    I420Frame* f = CreateI420Frame(c.width, c.height, c.alpha, 1);
    EXPECT_TRUE(f->size == c.size && f->width == c.width && f->height == c.height && f->timestamp == 0)
        << c.size;
    EXPECT_TRUE(f->planes[0] == f->data && f->planes[1] == f->data + c.u && f->planes[2] == f->data + c.v);
    EXPECT_EQ(f->planes[3], c.alpha ? f->data + c.a : nullptr);
    EXPECT_EQ(std::vector<int>(f->linesizes, f->linesizes + 4),
              (std::vector<int>{c.width, int(c.chroma_line), int(c.chroma_line), 0}));
    EXPECT_TRUE(All(f->data, c.u, 1) && All(f->data + c.u, c.size - c.u, 128));  // black; alpha 128
    FreeI420Frame(f);
  }
  FreeI420Frame(nullptr);

  const int64_t before = testing_support::LiveAllocations();
  {
    FrameQueue queue(12);
    I420Frame sentinel = {}, *untouched = &sentinel;
    EXPECT_TRUE(!queue.Pop(&untouched) && untouched == &sentinel);
    queue.Clear();
    for (int n = 1; n <= 13; ++n) EXPECT_TRUE(queue.Push(Numbered(n)));
    EXPECT_EQ(Drain(queue),
              (std::vector<int64_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));  // 1 dropped, freed
    for (int n = 1; n <= 5; ++n) queue.Push(Numbered(n));
    queue.Clear();
    EXPECT_TRUE(Drain(queue).empty());
    for (uint32_t capacity : {0u, 1u}) {  // below one counts as one
      FrameQueue small(capacity);
      small.Push(Numbered(1));
      small.Push(Numbered(2));
      EXPECT_EQ(Drain(small), std::vector<int64_t>{2});
    }
    queue.Push(Numbered(6));  // the destructor frees it
  }
  EXPECT_EQ(testing_support::LiveAllocations(), before);
}

// A stream of one size allocates nothing once dropped and cleared frames refill the pool.
TEST(FramePool, ReusesTheFramesOfTheSizeInUse) {
  const int64_t before = testing_support::LiveAllocations();
  {
    FramePool pool(3);
    FrameQueue queue(2, &pool);
    I420Frame* first = pool.Take(4, 2);
    for (I420Frame* frame : {first, pool.Take(4, 2), pool.Take(4, 2)}) queue.Push(frame);  // drops `first`
    const int64_t warm = testing_support::LiveAllocations();
    EXPECT_EQ(pool.Take(4, 2), first);
    pool.Give(first);
    queue.Clear();                               // the pool is full now
    pool.Give(CreateI420Frame(4, 2, false, 0));  // no slot: freed
    EXPECT_EQ(testing_support::LiveAllocations(), warm);
    I420Frame* other = pool.Take(2, 2);  // another size empties the pool
    EXPECT_EQ(testing_support::LiveAllocations(), warm - 3 * 2 + 2);
    pool.Give(other);
  }
  EXPECT_EQ(testing_support::LiveAllocations(), before);
}

TEST(Text, Utf8ToWideOnBothPathsAndTheVersionTables) {
  const std::string long_text(5000, 'a'), with_nul("a\0b", 3);
  const struct {
    std::string in;
    std::wstring out;
  } cases[] = {
      {"", L""},
      {"caf\xC3\xA9 \xE4\xB8\xAD\xF0\x9F\x98\x80", L"caf\x00E9 \x4E2D\xD83D\xDE00"},
      {std::string(1023, 'x') + "\xC3\xA9", std::wstring(1023, L'x') + L"\x00E9"},  // the local buffer's edge
      {long_text, std::wstring(5000, L'a')}};                                       // the heap path
  for (const auto& c : cases)
    EXPECT_TRUE(base::Utf8ToWide(c.in) == c.out && base::Utf8ToWide(c.in.c_str()) == c.out);
  EXPECT_EQ(base::Utf8ToWide(static_cast<const char*>(nullptr)), L"");
  EXPECT_EQ(base::Utf8ToWide(with_nul), std::wstring(L"a\0b", 3));  // the pointer stops at the NUL
  EXPECT_EQ(base::Utf8ToWide("ok\xFF!"), L"ok\xFFFD!");             // replaced, not fatal

  const int versions[][3] = {{4, 0, 0}, {5, 0, 0}, {5, 1, 1}, {5, 2, 2}, {5, 3, 2}, {6, 0, 3},  {6, 1, 4},
                             {6, 2, 5}, {6, 3, 6}, {6, 4, 6}, {7, 0, 8}, {9, 9, 8}, {10, 0, 7}, {11, 0, 8}};
  for (const auto& v : versions) EXPECT_EQ(VersionFromNumbers(v[0], v[1]), v[2]) << v[0] << "." << v[1];
  for (unsigned long t = 0; t <= 48; ++t) {
    const bool professional = t == 1 || t == 4 || t == 6 || t == 48;
    const bool server = (t >= 7 && t <= 10) || (t >= 12 && t <= 15) || t == 17 || t == 18 || t == 25;
    EXPECT_EQ(EditionFromProductType(t), professional ? SystemInfo::EditionProfessional
                                         : server     ? SystemInfo::EditionServer
                                                      : SystemInfo::EditionHome)
        << t;
  }
  const SystemInfo& info = SystemInfo::Instance();
  EXPECT_EQ(GetWindowsVersion(), VersionFromNumbers(info.major, info.minor));
  EXPECT_TRUE(info.processors >= 1 && info.allocation_granularity > 0 &&
              info.architecture != SystemInfo::ArchitectureOther);
}

}  // namespace
