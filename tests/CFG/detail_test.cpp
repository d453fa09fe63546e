#include <gtest/gtest.h>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/byte_scan.h>

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
        std::string fast(length, '?'), slow(length, '?');
        cfg::copy_lower(text, fast.data());
        cfg::copy_lower_bytewise(text, slow.data());
        ASSERT_EQ(fast, slow);
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

}  // namespace
