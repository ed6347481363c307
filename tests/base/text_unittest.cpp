#include "base/text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Utf8ToWide, ConvertsBothOverloads) {
  const struct {
    std::string in;
    std::wstring out;
  } cases[] = {
      {"", L""},
      {"caf\xC3\xA9 \xE4\xB8\xAD", L"caf\x00E9 \x4E2D"},
      {"a\xF0\x9F\x98\x80", L"a\xD83D\xDE00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(base::Utf8ToWide(c.in), c.out);
    EXPECT_EQ(base::Utf8ToWide(c.in.c_str()), c.out);
  }
  EXPECT_EQ(base::Utf8ToWide(static_cast<const char*>(nullptr)), L"");
  // The string overload keeps an embedded NUL; the pointer stops at it.
  const std::string with_nul("a\0b", 3);
  EXPECT_EQ(base::Utf8ToWide(with_nul), std::wstring(L"a\0b", 3));
  EXPECT_EQ(base::Utf8ToWide(with_nul.c_str()), L"a");
  // Long text goes past the local buffer: two bytes in, one character out.
  for (size_t length : {1023u, 1024u, 1025u, 5000u}) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text += "\xC3\xA9";
    EXPECT_EQ(base::Utf8ToWide(text), std::wstring(length, L'\x00E9')) << length;
    EXPECT_EQ(base::Utf8ToWide(text.c_str()), std::wstring(length, L'\x00E9')) << length;
  }
}

TEST(Utf8ToWide, InvalidBytesAreReplacedNotFatal) {
  const std::wstring out = base::Utf8ToWide("ok\xFF\xFE!");
  ASSERT_GE(out.size(), 3u);
  EXPECT_EQ(out.substr(0, 2), L"ok");
  EXPECT_EQ(out.back(), L'!');
  EXPECT_NE(out.find(L'\xFFFD'), std::wstring::npos);
  EXPECT_EQ(base::Utf8ToWide(std::string(3000, '\xFF')).size(), 3000u);  // on the heap path too
}

}  // namespace
