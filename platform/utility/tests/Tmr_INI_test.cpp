#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include <logging/Log_Capture.h>
#include <support/temporary_folder.h>
#include <system/Sys_Process.h>
#include <utility/Tmr_CfgINI.h>

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

constexpr char kMissing[] = "(missing)";

std::string value_of(const Tmr_INI& ini, const char* key) {
  RWCString value;
  return ini.GetValue(key, value) ? value.str() : kMissing;
}

struct LineCase {
  std::string text;
  const char* key;
  std::string value;
};

const std::string long_word(5000, 'x');
const std::string long_words = [] {
  std::string words = "host=db;";
  while (words.size() < 1000) words += " user=a:b=c; ;";
  return words;
}();

const LineCase line_cases[] = {
    {"a=1", "a", "1"},
    {"\xEF\xBB\xBF"
     "a = 1\r\nb = 2\r\n",
     "a", "1"},
    {"\xEF\xBB\xBF"
     "a = 1\r\nb = 2\r\n",
     "b", "2"},
    {"a=1\rb=2", "b", "2"},
    {"\t a \t=\t 1 2 \t", "a", "1 2"},
    {"  a = 1\n  b = 2", "b", "2"},  // an indented line does not continue the one before
    {"a = 1\nA = 2", "a", "2"},
    {"[s]\na = 1\n[t]\nA = 2", "a", "2"},
    {"a : 1", "a", "1"},
    {"xml_file = C:\\cfg\\tree.xml", "XML_File", "C:\\cfg\\tree.xml"},
    {"a = x=y;z=#1", "a", "x=y;z=#1"},
    {"a = x ; comment", "a", "x"},
    {"a = x\t# comment = 1", "a", "x"},
    {"a = ; comment", "a", ""},
    {"a =;b", "a", ";b"},
    {"; a = 1\n# a = 1\n#a = 1", "a", kMissing},
    {"a =", "a", ""},
    {"a = \xC3\xA4\xFF", "a", "\xC3\xA4\xFF"},
    {"no separator\n= no name\n[open\na = 1", "a", "1"},
    {"#" + long_word + "\n[" + long_word.substr(0, 100) + "]\na = 1", "a", "1"},
    {"a = " + long_word + "\nb = 1", "a", long_word},
    {"a = " + long_word + "\nb = 1", "b", "1"},
    {"a = " + long_word + " ; comment\nb = 1", "a", long_word},
    {"a = " + std::string(600, '=') + "c", "a", std::string(600, '=') + "c"},
    {"a = x" + std::string(600, ';') + "c", "a",
     kMissing},  // can be cut nowhere: left out, not cut short
    {"a = x" + std::string(600, ' ') + "c\nb = 1", "a", kMissing},
    {"a = x" + std::string(600, ' ') + "c\nb = 1", "b", "1"},
    {long_word + " = 1\nb = 1", "b", "1"},
    {std::string(90, 'k') + " = " + long_word,
     "kkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkk",
     long_word},
};

TEST(Tmr_INI, ReadsEveryFormOfLine) {
  for (const LineCase& c : line_cases) {
    Tmr_INI ini;
    EXPECT_TRUE(ini.ReadText(c.text, "text") && ini.IsInit()) << c.text;
    EXPECT_EQ(value_of(ini, c.key), c.value) << c.text;
  }
}

TEST(Tmr_INI, LinesOfAnyLengthComeBackWhole) {
  const std::string pattern =
      "ab; c=d:#e  f;;g h";  // no two lengths are divided at the same letters
  for (size_t length = 1; length < 900; ++length) {
    std::string value = "x";
    for (size_t i = 0; i < length; ++i) value += pattern[(i + length) % pattern.size()];
    value += "x";
    Tmr_INI ini;
    ASSERT_TRUE(ini.ReadText("name = " + value + "\nnext = 1", "text"));
    ASSERT_EQ(value_of(ini, "name"), value);
    ASSERT_EQ(value_of(ini, "next"), "1");
  }
}

TEST(Tmr_INI, NamesTheLinesThatItLeavesOut) {
  Log_Capture capture;
  Tmr_INI ini;
  EXPECT_TRUE(ini.ReadText("a = 1\r\n\r\nsecret\nb = 2\n = 3\r[open", "params.txt"));
  ASSERT_EQ(capture.lines().size(), 3u);
  EXPECT_EQ(capture.lines()[0].level, LOG_LEVEL_WARNING);
  EXPECT_EQ(capture.lines()[0].text,
            "ReadINIFile() : <params.txt> line 3 is not \"name = value\", it is left out\n");
  EXPECT_THAT(capture.lines()[1].text, HasSubstr("line 5 "));
  EXPECT_THAT(capture.lines()[2].text, HasSubstr("line 6 "));

  capture.clear();
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "secret\n";
  EXPECT_TRUE(ini.ReadText(many, "params.txt"));
  EXPECT_LT(capture.lines().size(), 30u);
  EXPECT_THAT(capture.last(), HasSubstr("1000 such lines"));
  EXPECT_FALSE(capture.has("secret"));  // may hold a password
}

TEST(Tmr_INI, RefusedFilesAreNamedAndLeaveTheOldValues) {
  const struct {
    std::string text;
    const char* reason;
  } cases[] = {
      {std::string("a = 2\nb\0", 8), "line 2 holds the control character 0x00"},
      {"a = 2\r\nb\x1B[0m", "line 2 holds the control character 0x1B"},
      {std::string("\xFF\xFE"
                   "a\0=\0",
                   6),
       "UTF-16"},
  };
  Tmr_INI ini;
  Log_Capture capture;
  EXPECT_FALSE(ini.ReadINIFile("/no/such/file"));
  EXPECT_FALSE(ini.ReadINIFile(L"/"));
  EXPECT_FALSE(ini.ReadINIFile(L""));
  const TemporaryFolder folder;
  std::ofstream(folder / "large") << std::string(1048577, '#');
  EXPECT_FALSE(ini.ReadINIFile(folder.file("large")));
  EXPECT_FALSE(ini.IsInit());
  for (const auto& line : capture.lines()) EXPECT_EQ(line.level, LOG_LEVEL_ERROR) << line.text;
  EXPECT_TRUE(capture.has("cannot open </no/such/file>: No such file or directory"));
  EXPECT_TRUE(capture.has("more than 1048576 bytes"));
  ASSERT_TRUE(ini.ReadText("a = 1", "good"));
  for (const auto& c : cases) {
    EXPECT_FALSE(ini.ReadText(c.text, "bad"));
    EXPECT_THAT(capture.last(), HasSubstr("<bad> is not a parameters file: "));
    EXPECT_THAT(capture.last(), HasSubstr(c.reason));
    EXPECT_EQ(value_of(ini, "a"), "1");
  }
}

TEST(Tmr_INI, SetValuesReplaceOnlyWhenTold) {
  Tmr_INI ini;
  EXPECT_TRUE(ini.SetValue("Type", "file", false));
  EXPECT_FALSE(ini.SetValue("type", "remote", false));
  EXPECT_EQ(value_of(ini, "TYPE"), "file");
  EXPECT_TRUE(ini.SetValue("type", "remote", true));
  EXPECT_EQ(value_of(ini, "TYPE"), "remote");
  EXPECT_FALSE(ini.IsInit());
}

// The process-wide file, looked for from an empty folder.
class CfgINI : public testing::Test {
 protected:
  CfgINI() {
    fs::current_path(m_folder.path());
    unsetenv("HALVORIA_CFG_FILE");
  }
  ~CfgINI() override { fs::current_path("/"); }
  void put(const char* name, const char* text) { std::ofstream(m_folder / name) << text; }
  TemporaryFolder m_folder;
};

TEST_F(CfgINI, LooksInThreePlacesAndAgainUntilOneIsThere) {
  Log_Capture capture;
  EXPECT_FALSE(Tmr_CfgINI::Instance().IsInit());
  EXPECT_TRUE(Tmr_CfgINI::Instance().FileName().isNull());
  const auto places = Tmr_CfgINI::Instance().Places();
  ASSERT_EQ(places.size(), 3u);
  EXPECT_EQ(places[0], RWWString(L"CfgConnectionParams.txt"));
  EXPECT_EQ(
      places[1].toUTF8().str(),
      fs::path(Sys_ExecutableFile().toUTF8().str()).replace_filename("CfgConnectionParams.txt"));
  EXPECT_EQ(places[2], RWWString(L"/etc/halvoria/CfgConnectionParams.txt"));
  EXPECT_TRUE(capture.has("there is no parameters file </etc/halvoria/CfgConnectionParams.txt>"));

  put("CfgConnectionParams.txt", "cfg_type = file");
  EXPECT_TRUE(Tmr_CfgINI::Instance().IsInit());
  EXPECT_EQ(value_of(Tmr_CfgINI::Instance(), "cfg_type"), "file");
  EXPECT_EQ(Tmr_CfgINI::Instance().FileName(), places[0]);
}

TEST_F(CfgINI, TheFileNamedByTheEnvironmentIsTheOnlyOne) {
  put("CfgConnectionParams.txt", "cfg_type = file");
  setenv("HALVORIA_CFG_FILE", "missing \xC3\xA4.txt", 1);
  Log_Capture capture;
  EXPECT_FALSE(Tmr_CfgINI::Instance().IsInit());
  EXPECT_EQ(
      capture.last(),
      "HALVORIA_CFG_FILE names the parameters file <missing \xC3\xA4.txt>, which does not exist\n");
  put("missing \xC3\xA4.txt", "cfg_type = remote");
  EXPECT_EQ(value_of(Tmr_CfgINI::Instance(), "cfg_type"), "remote");
}

TEST_F(CfgINI, ABadFileIsNotReplacedByAnother) {
  fs::create_directory("CfgConnectionParams.txt");
  Log_Capture capture;
  EXPECT_FALSE(Tmr_CfgINI::Instance().IsInit());
  EXPECT_THAT(capture.last(), EndsWith("<CfgConnectionParams.txt>: it is a folder\n"));
}

TEST_F(CfgINI, ThreadsThatAskFirstGetTheSameFile) {
  put("CfgConnectionParams.txt", "cfg_type = file");
  std::atomic<int> right = 0;
  const auto ask = [&] {
    RWCString type;
    right += Tmr_CfgINI::Instance().GetValue("cfg_type", type) && type == "file";
  };
  std::thread a(ask), b(ask), c(ask);
  a.join(), b.join(), c.join();
  EXPECT_EQ(right, 3);
}

}  // namespace
