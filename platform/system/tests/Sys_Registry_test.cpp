#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include <logging/Log_Capture.h>
#include <support/forked.h>
#include <support/temporary_folder.h>
#include <system/Sys_Registry.h>

namespace {

using testing::HasSubstr;

const RWCString KEY = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Kestral\\install";

class Registry : public testing::Test {
 protected:
  Registry() { setenv("HALVORIA_REGISTRY", m_file.c_str(), 1); }
  void put(const std::string& text) const { std::ofstream(m_file, std::ios::binary) << text; }
  std::string get() const {
    std::ifstream in(m_file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static std::string value(const RWCString& name, const RWCString& key = KEY) {
    RWCString found = "(left alone)";
    return Sys_Registry::GetValue(key, name, found) ? found.str() : "(none)";
  }

  TemporaryFolder m_folder;
  const std::string m_file = m_folder / "below/registry";
};

TEST_F(Registry, IsEmptyWithoutAFileAndMakesItsFolder) {
  EXPECT_EQ(value("base_setup_type"), "(none)");
  EXPECT_TRUE(Sys_Registry::DeleteValue(KEY, "base_setup_type"));
  EXPECT_TRUE(Sys_Registry::DeleteKey(KEY));
  EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
  ASSERT_TRUE(Sys_Registry::SetValue(KEY, "base_setup_type", "full"));
  EXPECT_EQ(value("BASE_setup_type", "hkey_local_machine\\software\\KESTRAL\\install"), "full");
  EXPECT_EQ(get(), "[" + KEY.str() + "]\n\"base_setup_type\"=\"full\"\n");
  unsetenv("HALVORIA_REGISTRY");
  EXPECT_EQ(Sys_Registry::FileOf(KEY), RWWString(L"/etc/halvoria/registry"));
}

TEST_F(Registry, EveryNameAndValueComesBack) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  const std::string texts[] = {"",
                               " ",
                               "a=b",
                               "]",
                               "[x]",
                               "line\r\nline\n",
                               "C:\\new\\table\\",
                               "\"",
                               "\\\"",
                               "M\xC3\xBCnchen",
                               "\xFF",
                               "; no comment",
                               "%n%s",
                               std::string(3000, 'n'),
                               all};
  const RWCString keys[] = {KEY, KEY + "\\a]b", KEY + "\\M\xC3\xBCnchen = [x", "k;#\""};
  for (const RWCString& key : keys) {
    for (const std::string& text : texts) {
      ASSERT_TRUE(Sys_Registry::SetValue(key, "name of " + text, text));
      ASSERT_TRUE(Sys_Registry::SetValue(key, text, "value of " + text));
    }
  }
  const Log_Capture log;
  for (const RWCString& key : keys) {
    for (const std::string& text : texts) {
      EXPECT_EQ(value("name of " + text, key), text);
      EXPECT_EQ(value(text, key), "value of " + text);
    }
  }
  EXPECT_EQ(log.text(), "");
  for (const RWCString& key : {RWCString(""), RWCString(" x"), RWCString("a\nb")}) {
    EXPECT_FALSE(Sys_Registry::SetValue(key, "name", "value"));
  }
  EXPECT_FALSE(Sys_Registry::SetValue(KEY, "big", std::string(Sys_Registry::MAX_BYTES, 'x')));
  EXPECT_THAT(log.last(), HasSubstr("more than the 1048576 allowed"));
  EXPECT_EQ(value("a=b"), "value of a=b");
}

TEST_F(Registry, AChangeLeavesAllOtherLinesAsTheyAre) {
  std::filesystem::create_directory(m_folder / "below");
  const std::string before =
      "\xEF\xBB\xBF; who wrote this\r\n[A]\r\n  one = 1 = uno\r\n\"two\" = \"2\"\r\n# mine\r\nnot a line\r\n"
      "\n[a\\b]\none=other\n[AB]\none=third\n[ a ]\nlast=1";
  put(before);
  EXPECT_EQ(value("one", "a"), "1 = uno");
  EXPECT_EQ(value("two", "A"), "2");
  EXPECT_EQ(value("one", "A\\B"), "other");
  EXPECT_EQ(value("last", "a"), "1");

  const auto replaced = [](std::string text, const std::string& part, const std::string& by) {
    return text.replace(text.find(part), part.size(), by);
  };
  ASSERT_TRUE(Sys_Registry::SetValue("a", "ONE", "uno"));
  std::string after = replaced(before, "  one = 1 = uno\r", "\"ONE\"=\"uno\"") + "\n";
  EXPECT_EQ(get(), after);
  ASSERT_TRUE(Sys_Registry::SetValue("a\\B", "new", "n"));
  after = replaced(after, "one=other\n", "one=other\n\"new\"=\"n\"\n");
  EXPECT_EQ(get(), after);
  ASSERT_TRUE(Sys_Registry::DeleteValue("A", "Two"));
  after = replaced(after, "\"two\" = \"2\"\r\n", "");
  EXPECT_EQ(get(), after);
  ASSERT_TRUE(Sys_Registry::DeleteKey("a"));  // with what is below it, and nothing else
  EXPECT_EQ(get(), "\xEF\xBB\xBF; who wrote this\r\n# mine\r\nnot a line\r\n\n[AB]\none=third\n");
}

TEST_F(Registry, WhatIsNothingOfARegistryIsNamedByFileAndLine) {
  std::filesystem::create_directory(m_folder / "below");
  put("early=1\n[A]\n[B\nx\n\"a\"b\"=\"c\"\n\"a\"=\"b\n\"a\"=\"\\q\"\n\"a\"=\"\\x4\"\n=v\na\x01=b\n[]\ngood=1\n");
  const Log_Capture log;
  EXPECT_EQ(value("good", "a"), "1");
  EXPECT_EQ(value("a", "a"), "(none)");
  for (const int line : {1, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
    EXPECT_TRUE(log.has("registry <" + m_file + "> line " + std::to_string(line) + " is left out"))
        << line;
  }
  std::filesystem::remove(m_file);
  std::filesystem::create_directory(m_file);
  EXPECT_EQ(value("good", "a"), "(none)");
  EXPECT_THAT(log.last(), HasSubstr("cannot read <" + m_file + ">: it is a folder"));
  EXPECT_FALSE(Sys_Registry::SetValue("a", "b", "c"));
  std::filesystem::remove(m_file);
  put("[A]\ngood=1\n");
  std::filesystem::permissions(m_folder.path(), std::filesystem::perms(0700));
  EXPECT_TRUE(holds_in_child([&] {  // hidden is not missing
    if (setuid(65534) != 0) return false;
    return value("good", "a") == "(none)" && log.has("Permission denied");
  }));
}

TEST_F(Registry, LosesNoChangeOfManyProcessesAndThreads) {
  const auto write = [](int writer) {
    bool all = true;
    for (int i = 0; i < 10; ++i) {
      all &= Sys_Registry::SetValue(KEY, std::to_string(writer * 100 + i), "x");
    }
    return all;
  };
  std::vector<pid_t> children;
  for (int i = 0; i < 2; ++i) {
    children.push_back(fork());
    if (children.back() == 0) _exit(write(i) ? 0 : 1);
  }
  std::vector<std::thread> threads;
  for (int i = 2; i < 4; ++i) threads.emplace_back([&, i] { EXPECT_TRUE(write(i)); });
  for (std::thread& thread : threads) thread.join();
  for (const pid_t child : children) {
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  for (int i = 0; i < 40; ++i) EXPECT_EQ(value(std::to_string(i / 10 * 100 + i % 10)), "x") << i;
}

}  // namespace
