#include <gtest/gtest.h>

#include <random>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/byte_scan.h>
#include <i18n/I18n_LowerCase.h>

namespace {

TEST(ByteScan, FindsEveryByteAtEveryPlaceOfEveryLength) {
  constexpr unsigned change = cfg::PLACEHOLDER | cfg::CAPITAL | cfg::HIGH_BYTE;
  for (size_t length = 0; length <= 40; ++length) {
    for (size_t place = 0; place < length; ++place) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string text(length, 'x');
        text[place] = static_cast<char>(byte);
        ASSERT_EQ(cfg::scan_for_change(text), cfg::scan_bytewise(text, change))
            << length << " " << byte;
        ASSERT_EQ(cfg::has_suspect_byte(text), cfg::scan_bytewise(text, cfg::SUSPECT) != 0)
            << length << " " << byte;
        ASSERT_EQ(cfg::first_high_byte(text, place / 2), byte > 0x7F ? place : text.npos);
        std::string fast(length, '?'), slow(length, '?');
        ASSERT_EQ(cfg::copy_lower(text, fast.data()), cfg::copy_lower_bytewise(text, slow.data()));
        ASSERT_EQ(fast, slow);
        cfg::copy_lower(text, text.data());
        ASSERT_EQ(text, slow);
      }
    }
  }
}

TEST(ActualPath, IsAViewOfTheGivenTextUnlessItHasToChange) {
  const std::string plain = "system\\nodes\\alpha", capital = "system\\Nodes\\alpha";
  EXPECT_EQ(cfg::actual_path(plain).view().data(), plain.data());
  EXPECT_EQ(cfg::actual_path(capital).view(), "system\\nodes\\alpha");
  EXPECT_EQ(cfg::actual_path("").view(), "");
  for (const size_t length : {255, 256, 257, 5000}) {
    EXPECT_EQ(cfg::actual_path(std::string(length, 'Q')).view(), std::string(length, 'q'));
  }
}

// Only what is beyond ASCII goes to ICU, component by component.
TEST(ActualPath, IsLoweredAsAWholeTextIs) {
  std::mt19937 random(5);
  const char* const parts[] = {"\\",       "\\",       "A",    "b",        "'",
                               "I",        ".",        " ",    "\xC3\x84", "\xCE\xA3",
                               "\xC4\xB0", "\xCC\x87", "\xC3", "\x84",     "\xE1\xBA\x9E"};
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (size_t n = random() % 24; n > 0; --n) text += parts[random() % std::size(parts)];
    ASSERT_EQ(cfg::actual_path(text).view(), I18n_LowerCase(text)) << text;
  }
}

}  // namespace
