#include "base/text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Utf8ToWide, NullAndEmptyGiveEmpty) {
  EXPECT_EQ(base::Utf8ToWide(static_cast<const char*>(nullptr)), L"");
  EXPECT_EQ(base::Utf8ToWide(""), L"");
  EXPECT_EQ(base::Utf8ToWide(std::string()), L"");
}

TEST(Utf8ToWide, ConvertsMultibyteText) {
  EXPECT_EQ(base::Utf8ToWide("caf\xC3\xA9 \xE4\xB8\xAD"), L"caf\x00E9 \x4E2D");
  EXPECT_EQ(base::Utf8ToWide(std::string("a\xF0\x9F\x98\x80")), L"a\xD83D\xDE00");
}

TEST(Utf8ToWide, LongTextGoesPastTheLocalBuffer) {
  for (size_t length : {1023u, 1024u, 1025u, 5000u}) {
    std::string text;
    std::wstring expected;
    for (size_t i = 0; i < length; ++i) {
      text += "\xC3\xA9";  // two bytes in, one wide character out
      expected += L'\x00E9';
    }
    EXPECT_EQ(base::Utf8ToWide(text), expected) << length;
    EXPECT_EQ(base::Utf8ToWide(text.c_str()), expected) << length;
  }
}

TEST(Utf8ToWide, InvalidBytesAreReplacedNotFatal) {
  const std::wstring out = base::Utf8ToWide("ok\xFF\xFE!");
  ASSERT_GE(out.size(), 3u);
  EXPECT_EQ(out.substr(0, 2), L"ok");
  EXPECT_EQ(out.back(), L'!');
  EXPECT_NE(out.find(L'\xFFFD'), std::wstring::npos);
  // Long invalid text takes the heap path and still comes back.
  std::string long_bad(3000, '\xFF');
  EXPECT_EQ(base::Utf8ToWide(long_bad).size(), 3000u);
}

TEST(Utf8ToWide, StringOverloadKeepsEmbeddedNul) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(base::Utf8ToWide(text), std::wstring(L"a\0b", 3));
  EXPECT_EQ(base::Utf8ToWide(text.c_str()), L"a");
}

}  // namespace
