#include "engine/desktop_data_source.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Pulls once into a frame filled with a pattern; true if the pull gave
// nothing and left the frame as it was.
bool PullsNothing(DesktopDataSource* source) {
  char buffer[64];
  TRTCVideoFrame frame;
  memset(&frame, 0x5A, sizeof(frame));
  frame.data = buffer;
  frame.length = 1234;
  const TRTCVideoFrame before = frame;
  return source->onPullVideo(&frame) == 0 && memcmp(&frame, &before, sizeof(frame)) == 0;
}

TEST(DesktopDataSource, EmptyDisabledOrBadlySizedGivesNothing) {
  DesktopDataSource source;
  std::vector<uint8_t> picture(6, 9);
  source.PushFrame(picture.data(), 6, 2, 2, 1);  // before Enable: dropped
  source.Enable();
  EXPECT_TRUE(PullsNothing(&source));
  source.PushFrame(picture.data(), 6, 0, 2, 1);
  source.PushFrame(picture.data(), 6, -2, 2, 1);
  source.PushFrame(nullptr, 6, 2, 2, 1);
  EXPECT_TRUE(PullsNothing(&source));
  source.PushFrame(picture.data(), 6, 2, 2, 2);
  // Disable empties the queue; a pull while disabled gives nothing even
  // should a racing push have landed.
  source.Disable();
  EXPECT_TRUE(PullsNothing(&source));
  TRTCAudioFrame audio = {};
  EXPECT_EQ(source.onPullAudio(&audio), 0);
}

}  // namespace
