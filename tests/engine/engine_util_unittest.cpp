#include "engine/engine_util.h"

#include <gtest/gtest.h>

namespace {

TEST(CopyText, CutsWithANulAndNeverSplitsAUtf8Character) {
  struct Case {
    const char* text;
    const char* field;
  } cases[] = {
      {"abc", "abc"},
      {"1234567", "1234567"},
      {"123456789", "1234567"},
      {"abcde\xE2\x82\xAC", "abcde"},            // a 3-byte character would straddle the end
      {"abcd\xE2\x82\xAC", "abcd\xE2\x82\xAC"},  // 7 bytes and the NUL fit exactly
      {"abcdef\xC3\xA9", "abcdef"},
      {nullptr, ""},
  };
  for (const Case& c : cases) {
    char field[8];
    memset(field, 'x', sizeof(field));
    engine::CopyText(field, sizeof(field), c.text);
    EXPECT_STREQ(field, c.field) << (c.text ? c.text : "(null)");
  }
}

}  // namespace
