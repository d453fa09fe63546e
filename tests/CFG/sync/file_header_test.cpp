#include <CFG/sync/file_header.h>

#include <gtest/gtest.h>

#include <random>

#include <servers/Test_Seed.h>

namespace {

using cfg::compare_sequence_numbers;
using Header = cfg::Synced_Cfg_File_Header;

Header header_of(const char* sync_id, const char* user, const char* sequence) {
  Header header;
  header.sync_id = sync_id;
  header.user_id = user;
  header.sequence = sequence;
  header.reset_count = 0x01020304;
  header.file_type = Header::ENCRYPTED;
  return header;
}

TEST(SyncedFileHeader, HasEachFieldInItsPlace) {
  const char* misfit = "";
  const std::string bytes = header_of("id", "\xC3\xA4", "42").bytes(misfit);
  EXPECT_EQ(misfit, nullptr);
  std::string expected(224, '\0');
  const auto put = [&](size_t at, std::string_view text) { text.copy(&expected[at], text.size()); };
  put(0, "VSCFG#");
  put(7, "12200");
  put(13, "12.2.0.0");
  put(24, "id");
  put(153, "\xC3\xA4");
  put(184, "42");
  put(216, "\4\3\2\1");
  put(220, "E");
  EXPECT_EQ(bytes, expected);
}

TEST(SyncedFileHeader, TakesTextsThatFitAndNoOthers) {
  const struct {
    RWCString Header::*text;
    size_t longest;
    const char* name;
  } rows[] = {{&Header::sync_id, 128, "sync id"},
              {&Header::user_id, 30, "user id"},
              {&Header::sequence, 31, "sequence"}};
  for (const auto& row : rows) {
    Header header = header_of("id", "user", "1");
    header.*row.text = RWCString(std::string(row.longest, '7'));
    const char* misfit = nullptr;
    const Header read = Header::read(header.bytes(misfit));
    EXPECT_EQ(misfit, nullptr);
    EXPECT_EQ(read.*row.text, header.*row.text);
    EXPECT_EQ(read.reset_count, header.reset_count);
    for (const std::string& text :
         {std::string(row.longest + 1, '7'), std::string("a\0b", 3), std::string(5000, '7')}) {
      header.*row.text = RWCString(text);
      EXPECT_EQ(header.bytes(misfit), "");
      EXPECT_STREQ(misfit, row.name);
    }
  }
}

TEST(SyncedFileHeader, IsReadFromAnyBytes) {
  std::mt19937 random(test_seed());
  for (size_t size : {0, 1, 6, 7, 24, 152, 219, 220, 224, 1000}) {
    std::string bytes(size, '\xFF');
    for (char& byte : bytes) byte = static_cast<char>(random() % 3 ? 'A' + random() % 26 : 0);
    const Header header = Header::read(bytes);
    EXPECT_LT(header.sync_id.length(), 130U);
    EXPECT_EQ(header.format_number(), 0);
  }
  const Header full = Header::read(std::string(224, '9'));
  EXPECT_EQ(full.sequence.length(), 32U) << "no text goes beyond its field";
  EXPECT_EQ(full.format_number(), 999999);
  Header version;
  for (const auto& [text, number] :
       {std::pair{"12200", 12200}, {"12201", 12201}, {"12200x", 0}, {"", 0}}) {
    version.format_version = text;
    EXPECT_EQ(version.format_number(), number) << text;
  }
}

TEST(SequenceNumbers, GoByLengthThenBytes) {
  const struct {
    const char *a, *b;
    int order;
  } rows[] = {{"9", "10", -1},
              {"0099", "100", 1},
              {"100", "100", 0},
              {"199", "200", -1},
              {"", "0", 0},
              {"", "1", -1},
              {"18446744073709551616", "9", 1}};
  for (const auto& row : rows) {
    EXPECT_EQ(compare_sequence_numbers(row.a, row.b), row.order) << row.a << " " << row.b;
    EXPECT_EQ(compare_sequence_numbers(row.b, row.a), -row.order) << row.a << " " << row.b;
  }
  for (const auto& [number, next] :
       {std::pair{"9", "10"}, {"199", "200"}, {"", "1"}, {"41", "42"}, {"999", "1000"}}) {
    EXPECT_EQ(cfg::incremented_sequence_number(number), next);
  }
}

}  // namespace
