#include "engine/engine_util.h"

#include <gtest/gtest.h>

namespace {

TEST(CopyText, FitsWhole) {
  char field[8];
  memset(field, 'x', sizeof(field));
  engine::CopyText(field, sizeof(field), "abc");
  EXPECT_STREQ(field, "abc");
  engine::CopyText(field, sizeof(field), "1234567");
  EXPECT_STREQ(field, "1234567");
}

TEST(CopyText, CutsWithANul) {
  char field[8];
  engine::CopyText(field, sizeof(field), "123456789");
  EXPECT_STREQ(field, "1234567");
}

TEST(CopyText, NeverSplitsAUtf8Character) {
  char field[8];
  // 5 ASCII bytes, then a 3-byte character that would straddle the end.
  engine::CopyText(field, sizeof(field), "abcde\xE2\x82\xAC");
  EXPECT_STREQ(field, "abcde");
  // 4 ASCII bytes and the same character fit exactly (7 bytes + NUL).
  engine::CopyText(field, sizeof(field), "abcd\xE2\x82\xAC");
  EXPECT_STREQ(field, "abcd\xE2\x82\xAC");
  // 6 ASCII then a 2-byte character.
  engine::CopyText(field, sizeof(field), "abcdef\xC3\xA9");
  EXPECT_STREQ(field, "abcdef");
}

TEST(CopyText, NullGivesEmpty) {
  char field[4] = {'a', 'b', 'c', 'd'};
  engine::CopyText(field, sizeof(field), nullptr);
  EXPECT_STREQ(field, "");
}

TEST(FieldText, StopsAtTheFieldEnd) {
  char field[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(engine::FieldText(field, sizeof(field)), "abcd");
  field[2] = '\0';
  EXPECT_EQ(engine::FieldText(field, sizeof(field)), "ab");
}

}  // namespace
