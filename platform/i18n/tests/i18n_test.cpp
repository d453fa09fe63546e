#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include <i18n/I18n_ConvertUtils.h>
#include <i18n/I18n_DecimalConvertUtils.h>
#include <i18n/I18n_LowerCase.h>
#include <i18n/I18n_ShortNumber.h>
#include <i18n/I18n_Utf8.h>
#include <strings/RWWString.h>

namespace {

using namespace std::string_view_literals;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(Utf8, CheckNamesTheFirstByteThatIsNoCharacter) {
  constexpr size_t valid = ~size_t{0};
  const std::pair<std::string_view, size_t> rows[] = {
      {"", valid},
      {"seven b", valid},
      {"plain text longer than a word\0with NUL"sv, valid},
      {"M\xC3\xBCnchen \xE2\x82\xAC \xF0\x9F\x99\x82 \xF4\x8F\xBF\xBF", valid},
      {"\x80", 0},
      {"12345678\xFF", 8},
      {"1234567\xC3\xBC 12345678\xC3", 18},
      {"overlong \xC0\xAF", 9},
      {"overlong \xE0\x80\xAF", 9},
      {"surrogate \xED\xA0\x80", 10},
      {"beyond \xF4\x90\x80\x80", 7},
      {"cut \xF0\x9F\x99", 4},
  };
  for (const auto& [text, wanted] : rows) {
    size_t bad_offset = valid;
    EXPECT_EQ(I18n_IsValidUtf8(text, &bad_offset), wanted == valid) << text;
    EXPECT_EQ(bad_offset, wanted) << text;
  }
}

TEST(Utf8, EveryByteStringSurvivesTheTripThroughUtf16) {
  EXPECT_EQ(I18n_Utf8::ToUtf16("M\xC3\xBC\xF0\x9F\x99\x82\0."sv), u"M\u00FC\U0001F642\0."sv);
  EXPECT_EQ(I18n_Utf8::ToUtf16("\xFF\xC3x"), u"\xDCFF\xDCC3x"sv);
  std::mt19937 random(4711);
  constexpr std::string_view pieces[] = {"a",    "\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x99\x82",
                                         "\xED", "\xB2",     "\x80",         "\xF0",
                                         "\xC3", "\xFF",     "\0"sv};
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (unsigned i = random() % 9; i > 0; --i) text += pieces[random() % std::size(pieces)];
    ASSERT_EQ(I18n_Utf8::FromUtf16(I18n_Utf8::ToUtf16(text)), RWCString(text)) << text;
    // The wide string's own decoder must agree on what is well-formed.
    const RWWString wide = RWWString::fromUTF8(text);
    const bool is_escaped = std::any_of(wide.data(), wide.data() + wide.length(),
                                        [](wchar_t c) { return c >= 0xDC80 && c <= 0xDCFF; });
    ASSERT_EQ(I18n_IsValidUtf8(text), !is_escaped) << text;
  }
}

TEST(Utf8, LoneSurrogatesFromOutsideAreReplaced) {
  EXPECT_EQ(I18n_Utf8::FromUtf16(u"a\xD83D"
                                 u"b\xDC00\xDE42"sv),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(I18n_Utf8::FromUtf16(u"\xD83D\xDC80"sv), "\xF0\x9F\x92\x80");
}

TEST(LowerCase, FollowsUnicodeAndKeepsBytesThatAreNoText) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"", ""},
      {"PLAIN I\\Path_1", "plain i\\path_1"},
      {"\xC3\x84\xC3\x96\xC3\x9C\xC3\x9F", "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F"},
      {"\xD0\x9C\xD0\x98\xD0\xA0", "\xD0\xBC\xD0\xB8\xD1\x80"},
      {"\xC4\xB0", "i\xCC\x87"},                       // longer than before
      {"\xCE\x9F\xCE\xA3\\X", "\xCE\xBF\xCF\x82\\x"},  // final sigma ends at the separator
      {"A\xFF"
       "B\xC3",
       "a\xFF"
       "b\xC3"},
      {"\xC3\x84\xC3"
       "A\xED\xA0\x80Z",
       "\xC3\xA4\xC3"
       "a\xED\xA0\x80z"},
      {"A\0B"sv, "a\0b"sv},
  };
  for (const auto& [text, wanted] : rows) EXPECT_EQ(I18n_LowerCase(text), wanted) << text;
  std::string long_text, long_wanted;
  for (int i = 0; i < 50000; ++i) long_text += "\xC4\xB0", long_wanted += "i\xCC\x87";
  EXPECT_TRUE(I18n_LowerCase(long_text) == long_wanted);
}

TEST(LowerCase, ThreadsShareTheMap) {
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([] {
      for (int i = 0; i < 1000; ++i) EXPECT_EQ(I18n_LowerCase("\xC3\x84X"), "\xC3\xA4x");
    });
  }
  for (auto& thread : threads) thread.join();
}

struct NumberCase {
  const char* text;
  double wanted;
};
const NumberCase number_cases[] = {
    {"0", 0},
    {"12.5", 12.5},
    {"12,5", 12.5},
    {" \t-3.25 mm", -3.25},
    {"+.5", 0.5},
    {",5", 0.5},
    {"5.", 5},
    {"5.e2", 500},
    {"1,234", 1.234},
    {"1.234", 1.234},
    {"1,234.5", 1234.5},
    {"1.234,5", 1234.5},
    {"1.234.567", 1234567},
    {"1.234.567,89", 1234567.89},
    {"12,34,567.5", 1234567.5},
    {"12,34,56", 12.34},
    {"1 234 567,5", 1234567.5},
    {"1\xC2\xA0"
     "234,5",
     1234.5},
    {"1\xE2\x80\xAF"
     "234\xE2\x80\xAF"
     "567",
     1234567},
    {"1'234'567.5", 1234567.5},
    {"1\xE2\x80\x99"
     "234.5",
     1234.5},
    {"1 2", 1},
    {"10.0.0.1", 10},
    {"1,234.567.8", 1234.567},
    {"1.234,", 1.234},
    {"0.1", 0.1},
    {"9007199254740993", 9007199254740992},
    {"1e3", 1000},
    {"1,5E-3", 0.0015},
    {"2e", 2},
    {"2e+", 2},
    {"3 euro", 3},
    {"\xD9\xA1\xD9\xA2\xD9\xAC\xD9\xA3\xD9\xA4\xD9\xA5\xD9\xAB\xD9\xA5", 12345.5},  // Arabic
    {"\xE2\x88\x92\xE0\xA5\xA7\xE0\xA5\xA8.\xE0\xA5\xA9", -12.3},                   // Devanagari
    {"\xE2\x80\x8E-\xDB\xB5", -5},                                                  // Persian
    {"1e400", kInfinity},
    {"-1e99999999999999999999", -kInfinity},
    {"1e-400", 0},
    {"0.0e999", 0},
    {"", 0},
    {"abc", 0},
    {"-", 0},
    {".", 0},
    {"'123", 0},
    {"e5", 0},
    {"nan", 0},
    {"inf", 0},
    {"\xFF"
     "5",
     0},
    {"5\xFF"
     "5",
     5},
};
TEST(AnyLocaleStrToDouble, ReadsTheNumberAtTheStart) {
  for (const auto& [text, wanted] : number_cases) {
    EXPECT_DOUBLE_EQ(I18n_DecimalConvertUtils::AnyLocaleStrToDouble(text), wanted) << text;
  }
  const auto repeated = [](const std::string& part, size_t times) {
    std::string text;
    while (times-- > 0) text += part;
    return I18n_DecimalConvertUtils::AnyLocaleStrToDouble(text);
  };
  EXPECT_EQ(repeated("9", 400), kInfinity);
  EXPECT_EQ(repeated("1,", 1000000), 1.1);
  EXPECT_EQ(repeated("1 ", 1000000), 1);
}

// Short numbers have a reader of their own; behind a blank a text is read the long way.
TEST(AnyLocaleStrToDouble, ReadsShortNumbersAsAllOthers) {
  std::mt19937 random(3);
  const std::string signs = "0123456789012345678999./:-+,e\x8A\xFF";
  for (int i = 0; i < 200000; ++i) {
    std::string text;
    for (size_t n = random() % 10; n > 0; --n) text += signs[random() % signs.size()];
    const double number = I18n_DecimalConvertUtils::AnyLocaleStrToDouble(text);
    const double wanted = I18n_DecimalConvertUtils::AnyLocaleStrToDouble(" " + text);
    ASSERT_EQ(number, wanted) << text;
    ASSERT_EQ(std::signbit(number), std::signbit(wanted)) << text;
  }
}

TEST(ShortNumber, IsOneToEightDigits) {
  std::mt19937 random(4);
  for (int i = 0; i < 200000; ++i) {
    std::string text;
    for (size_t n = random() % 10; n > 0; --n) {
      text += static_cast<char>(random() % 30 ? '0' + random() % 10 : random() % 256);
    }
    const bool is_one =
        !text.empty() && text.size() <= 8 && text.find_first_not_of("0123456789") == text.npos;
    uint32_t value = 0;
    ASSERT_EQ(I18n_ShortNumber::ReadInteger(text, value), is_one) << text;
    if (is_one) {
      ASSERT_EQ(value, std::stoul(text));
    }
  }
}

TEST(Double2DicomLocaleStrNum, FitsInSixteenCharacters) {
  struct Row {
    double value;
    int digits;
    const char* wanted;
  };
  const Row rows[] = {
      {0, 3, "0.000"},
      {1.5, 3, "1.500"},
      {-1.0005, 3, "-1.000"},
      {2.6, 0, "3"},
      {2.6, -1, "3"},
      {123456789012.5, 3, "123456789012.500"},
      {-123456789012.5, 3, "-123456789012.5"},
      {1234567890123456., 3, "1234567890123456"},
      {12345678901234567., 3, "1.2345678901e+16"},
      {-1.0 / 3, 40, "-0.3333333333333"},
      {-1.7976931348623157e308, 3, "-1.79769313e+308"},
      {kInfinity, 3, "inf"},
      {std::nan(""), 3, "nan"},
  };
  for (const auto& [value, digits, wanted] : rows) {
    EXPECT_EQ(I18n_ConvertUtils::Double2DicomLocaleStrNum(value, digits), wanted);
  }
}

TEST(Double2DicomLocaleStrNum, IsReadBackAsWritten) {
  std::mt19937_64 random(4711);
  std::uniform_real_distribution<double> mantissa(-10, 10);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::ldexp(mantissa(random), static_cast<int>(random() % 2000) - 1000);
    const RWCString text = I18n_ConvertUtils::Double2DicomLocaleStrNum(value, 3);
    ASSERT_LE(text.length(), 16u) << text;
    const double back = I18n_DecimalConvertUtils::AnyLocaleStrToDouble(text);
    ASSERT_LE(std::abs(back - value), 0.0005 + std::abs(value) * 1e-8) << text;
  }
}

}  // namespace
