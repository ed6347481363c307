#include "engine/desktop_data_source.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Probe {
  int destroyed = 0;
};

void OnDestroy(void* context) { ++static_cast<Probe*>(context)->destroyed; }

TRTCVideoFrame Untouched(char* buffer) {
  TRTCVideoFrame frame;
  memset(&frame, 0x5A, sizeof(frame));
  frame.data = buffer;
  frame.length = 1234;
  return frame;
}

TEST(DesktopDataSource, PullOnAnEmptyQueueLeavesTheFrameAlone) {
  DesktopDataSource source;
  source.Enable();
  char buffer[64];
  TRTCVideoFrame frame = Untouched(buffer);
  const TRTCVideoFrame before = frame;
  EXPECT_EQ(source.onPullVideo(&frame), 0);
  EXPECT_EQ(memcmp(&frame, &before, sizeof(frame)), 0);
}

TEST(DesktopDataSource, DisabledPushesAndPullsDoNothing) {
  DesktopDataSource source;
  std::vector<uint8_t> picture(6, 9);
  source.PushFrame(picture.data(), 6, 2, 2, 1);  // before Enable: dropped
  source.Enable();
  source.PushFrame(picture.data(), 6, 2, 2, 2);
  source.Disable();  // empties the queue too
  source.Enable();
  char buffer[64];
  TRTCVideoFrame frame = Untouched(buffer);
  EXPECT_EQ(source.onPullVideo(&frame), 0);
}

TEST(DesktopDataSource, PullWhileDisabledGivesNothingEvenWithAFrameQueued) {
  DesktopDataSource source;
  source.Enable();
  std::vector<uint8_t> picture(6, 9);
  source.PushFrame(picture.data(), 6, 2, 2, 2);
  // Disable empties the queue; a push that races it may still land.
  source.Disable();
  char buffer[64];
  TRTCVideoFrame frame = Untouched(buffer);
  EXPECT_EQ(source.onPullVideo(&frame), 0);
}

TEST(DesktopDataSource, NoAudioOfItsOwn) {
  DesktopDataSource source;
  TRTCAudioFrame frame = {};
  EXPECT_EQ(source.onPullAudio(&frame), 0);
}

TEST(DesktopDataSource, DestroyHookRunsOnceAtTheEnd) {
  Probe probe;
  {
    DesktopDataSource* source = new DesktopDataSource;
    source->on_destroy = &OnDestroy;
    source->on_destroy_context = &probe;
    source->Enable();
    std::vector<uint8_t> picture(6, 1);
    for (int i = 0; i < 20; ++i) source->PushFrame(picture.data(), 6, 2, 2, i);
    EXPECT_EQ(probe.destroyed, 0);
    delete source;
  }
  EXPECT_EQ(probe.destroyed, 1);
}

TEST(DesktopDataSource, BadSizesAreIgnored) {
  DesktopDataSource source;
  source.Enable();
  std::vector<uint8_t> picture(6, 1);
  source.PushFrame(picture.data(), 6, 0, 2, 1);
  source.PushFrame(picture.data(), 6, -2, 2, 1);
  source.PushFrame(nullptr, 6, 2, 2, 1);
  char buffer[64];
  TRTCVideoFrame frame = Untouched(buffer);
  EXPECT_EQ(source.onPullVideo(&frame), 0);
}

}  // namespace
