#include <gtest/gtest.h>

#include <strings/RWWString.h>

#include "text_comparisons.h"

namespace {

TEST(RWCString, GoesTogetherWithOtherTexts) { expect_texts_go_together(); }

TEST(RWCString, NullTextIsTheEmptyString) {
  const char* none = nullptr;
  EXPECT_TRUE(RWCString(none).isNull());
  EXPECT_EQ(RWCString(none), "");
  EXPECT_STREQ(RWCString().data(), "");
}

TEST(RWCString, ComparesBytesAsUnsignedInBothWays) {
  EXPECT_EQ(RWCString("Ab").compareTo("aB", RWCString::ignoreCase), 0);
  EXPECT_NE(RWCString("Ab").compareTo("aB"), 0);
  EXPECT_LT(RWCString("a").compareTo("ab", RWCString::ignoreCase), 0);
  EXPECT_GT(RWCString("\xC3\xA4").compareTo("z", RWCString::ignoreCase), 0);
  EXPECT_LT(RWCString(std::string_view("a\0a", 3)), RWCString(std::string_view("a\0b", 3)));
}

TEST(RWCString, SubStringBeyondTheEndIsEmpty) {
  const RWCString text("abc");
  EXPECT_EQ(text.subString(1, 1), "b");
  EXPECT_EQ(text.subString(3), "");
  EXPECT_EQ(text.subString(9, 2), "");
}

TEST(RWWString, EveryByteStringSurvivesTheTripThroughWideText) {
  for (const std::string_view text :
       {"plain", "M\xC3\xBCnchen", "\xF0\x9F\x99\x82", "\xE2\x82\xAC uro", "bad \xFF\xC3 end",
        "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80"}) {
    EXPECT_EQ(RWWString::fromUTF8(text).toUTF8(), text);
  }
  EXPECT_EQ(RWWString::fromUTF8("M\xC3\xBCn").length(), 3u);
  EXPECT_EQ(RWWString(std::wstring(1, L'\u20AC')).toUTF8(), "\xE2\x82\xAC");
}

}  // namespace
