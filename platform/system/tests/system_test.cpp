#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <support/forked.h>
#include <support/temporary_folder.h>
#include <system/Sys_Block.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <system/Sys_FileName.h>
#include <system/Sys_FileReplacer.h>
#include <system/Sys_MappedFile.h>
#include <system/Sys_Module.h>
#include <system/Sys_Process.h>

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

// A folder of the test's own.
class Files : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return m_folder / name; }
  RWWString wide(const std::string& name) const { return RWWString::fromUTF8(path(name)); }
  void put(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  std::string get(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  size_t entries() const {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(m_folder.path()), fs::directory_iterator()));
  }
  std::string replace(const std::string& name, const std::string& bytes) const {
    Sys_FileReplacer file(wide(name));
    file.write(bytes);
    return file.commit() ? "" : file.error().str();
  }

  TemporaryFolder m_folder;
};

TEST_F(Files, EitherSeparatorAndAnyLetterReachesTheSameFile) {
  fs::create_directory(path("M\xC3\xBCnchen"));
  ASSERT_EQ(replace("M\xC3\xBCnchen\\\xE6\x97\xA5 \xF0\x9F\x99\x82.xml", "bytes"), "");
  EXPECT_EQ(get("M\xC3\xBCnchen/\xE6\x97\xA5 \xF0\x9F\x99\x82.xml"), "bytes");
  std::string bytes;
  RWCString error;
  EXPECT_TRUE(Sys_File::ReadWhole(wide("M\xC3\xBCnchen\\\xE6\x97\xA5 \xF0\x9F\x99\x82.xml"), bytes,
                                  5, error))
      << error;
  EXPECT_EQ(bytes, "bytes");

  put("a\\b", "literal");  // a file of exactly that name comes first
  EXPECT_EQ(replace("a\\b", "changed"), "");
  EXPECT_EQ(get("a\\b"), "changed");
  EXPECT_TRUE(Sys_File::Exists(wide("a\\b")));
  EXPECT_FALSE(Sys_File::Exists(wide("a\\c")));
}

TEST_F(Files, WhatCannotBeReadIsNamedWithItsReason) {
  put("five", "bytes");
  std::string bytes = "untouched";
  const auto reason = [&](const RWWString& name, size_t limit) {
    RWCString error;
    EXPECT_FALSE(Sys_File::ReadWhole(name, bytes, limit, error));
    EXPECT_EQ(bytes, "untouched");
    return error.str();
  };
  EXPECT_EQ(reason(wide("none"), 9),
            "cannot open <" + path("none") + ">: No such file or directory");
  EXPECT_EQ(reason(wide(""), 9), "cannot read <" + path("") + ">: it is a folder");
  EXPECT_EQ(reason(wide("five"), 4),
            "refused to read <" + path("five") + ">: it has more than 4 bytes");
  EXPECT_EQ(reason(L"", 9), "the file name is empty");
  EXPECT_THAT(reason(RWWString(std::wstring(L"a\0b", 3)), 9), HasSubstr("NUL"));
  EXPECT_EQ(reason(L"/dev/zero", 1000), "cannot read </dev/zero>: it is a device");  // has no end
  EXPECT_THAT(reason(L"/proc/self/status", 10), HasSubstr("more than 10 bytes"));
}

TEST_F(Files, FilesThatAnnounceNoSizeAreReadToTheirEnd) {
  std::string bytes;
  RWCString error;
  ASSERT_TRUE(Sys_File::ReadWhole(L"/proc/self/status", bytes, 1 << 20, error)) << error;
  EXPECT_THAT(bytes, StartsWith("Name:"));
  Sys_MappedFile mapped;
  ASSERT_TRUE(mapped.open(L"/proc/self/status"));
  EXPECT_THAT(std::string(mapped.view()), StartsWith("Name:"));

  const std::string big(1'000'000, 'x');
  put("big", big);
  ASSERT_TRUE(Sys_File::ReadWhole(wide("big"), bytes, big.size(), error)) << error;
  EXPECT_EQ(bytes, big);
}

TEST_F(Files, MappedViewOfAnEmptyFileIsEmptyNotNull) {
  put("empty", "");
  put("full", "bytes");
  Sys_MappedFile mapped;
  ASSERT_TRUE(mapped.open(wide("full")));
  EXPECT_EQ(mapped.view(), "bytes");
  ASSERT_TRUE(mapped.open(wide("empty")));
  EXPECT_EQ(mapped.view(), "");
  EXPECT_NE(mapped.data(), nullptr);
  EXPECT_FALSE(mapped.open(wide("none")));
  EXPECT_EQ(mapped.view(), "");
  EXPECT_THAT(mapped.error().str(), HasSubstr("No such file"));
}

TEST_F(Files, ReplacedFileKeepsItsPermissionsAndANewOneFollowsTheUmask) {
  umask(027);
  const std::string bytes =
      std::string(300'000, 'a') + std::string(100, 'b');  // more than the buffer
  EXPECT_EQ(replace("new", bytes), "");
  EXPECT_EQ(get("new"), bytes);
  EXPECT_EQ(fs::status(path("new")).permissions(), fs::perms(0640));
  fs::permissions(path("new"), fs::perms(0606));
  EXPECT_EQ(replace("new", ""), "");
  EXPECT_EQ(get("new"), "");
  EXPECT_EQ(fs::status(path("new")).permissions(), fs::perms(0606));
  EXPECT_EQ(entries(), 1u);
  EXPECT_EQ(replace(std::string(255, 'n'), "longest name"), "");
  EXPECT_EQ(entries(), 2u);
}

TEST_F(Files, AFileBehindLinksIsReplacedWhereItLives) {
  fs::create_directories(path("there/deep"));
  put("there/file", "old");
  fs::create_symlink("../file", path("there/deep/second"));
  fs::create_symlink("there/deep/second", path("first"));
  EXPECT_EQ(replace("first", "new"), "");
  EXPECT_EQ(get("there/file"), "new");
  EXPECT_TRUE(fs::is_symlink(path("first")) && fs::is_symlink(path("there/deep/second")));

  fs::create_symlink("there/not yet", path("dangling"));
  EXPECT_EQ(replace("dangling", "made"), "");
  EXPECT_EQ(get("there/not yet"), "made");

  fs::create_symlink("round", path("round"));
  EXPECT_THAT(replace("round", "x"), HasSubstr("Too many levels"));
}

TEST_F(Files, WhatMayNotBeReplacedIsRefusedAndStaysWhole) {
  put("read-only", "old");
  fs::permissions(path("read-only"), fs::perms(0444));
  EXPECT_EQ(replace("read-only", "new"),
            "cannot replace <" + path("read-only") + ">: it is read-only");
  fs::create_directory(path("folder"));
  EXPECT_THAT(replace("folder", "new"), EndsWith(": it is a folder"));
  put("folder/file", "old");
  fs::permissions(path("folder"), fs::perms(0555));
  EXPECT_THAT(replace("folder/file", "new"), EndsWith(": its folder is read-only"));
  EXPECT_THAT(replace("folder/other", "new"), EndsWith(": its folder is read-only"));
  EXPECT_THAT(replace("nowhere/file", "new"), EndsWith(": No such file or directory"));
  EXPECT_THAT(replace("read-only/file", "new"), EndsWith(": Not a directory"));
  EXPECT_EQ(get("read-only") + get("folder/file"), "oldold");
  EXPECT_EQ(entries(), 2u);
}

TEST_F(Files, WithoutACommitNothingIsLeftBehind) {
  put("file", "old");
  {
    Sys_FileReplacer file(wide("file"));
    EXPECT_TRUE(file.is_open() && file.write("new"));
    EXPECT_EQ(entries(), 2u);
  }
  EXPECT_EQ(get("file"), "old");
  EXPECT_EQ(entries(), 1u);
}

TEST_F(Files, AFullDiskLeavesTheOldFileAndSaysSo) {
  put("file", "old");
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit limit = {100'000, before.rlim_max};  // stands for the disk's end
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  Sys_FileReplacer file(wide("file"));
  EXPECT_TRUE(file.write(std::string(100'001, 'x')));  // still in the buffer
  EXPECT_FALSE(file.commit());
  EXPECT_EQ(file.error(), "cannot write <" + path("file") + ">: File too large");
  EXPECT_FALSE(file.write("more") || file.commit());
  EXPECT_EQ(file.error(), "cannot write <" + path("file") + ">: File too large");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(get("file"), "old");
  EXPECT_EQ(entries(), 1u);
}

TEST_F(Files, AKillWhileWritingLeavesTheOldFileAndANamedTemporary) {
  put("tree.xml", "old");
  const pid_t child = fork();
  if (child == 0) {
    Sys_FileReplacer file(wide("tree.xml"));
    file.write(std::string(1'000'000, 'x'));
    raise(SIGKILL);
  }
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(get("tree.xml"), "old");
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(m_folder.path()))
    names.push_back(entry.path().filename());
  EXPECT_THAT(names, testing::UnorderedElementsAre(
                         "tree.xml", MatchesRegex("\\.tree\\.xml\\.[a-z0-9]{6}\\.tmp")));
  EXPECT_EQ(replace("tree.xml", "new"), "");
}

TEST_F(Files, PipesAndGivenDescriptorsAreWrittenStraightThrough) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(replace("pipe", "through"), "");
  char bytes[16] = "";
  EXPECT_EQ(read(reader, bytes, sizeof bytes), 7);
  EXPECT_STREQ(bytes, "through");
  EXPECT_TRUE(fs::is_fifo(path("pipe")));
  close(reader);

  const int log =
      open(path("log").c_str(), O_WRONLY | O_CREAT, 0600);  // a file like `> log` gives it
  ASSERT_EQ(write(log, "first ", 6), 6);
  Sys_FileReplacer file(RWWString::fromUTF8("/dev/fd/" + std::to_string(log)));
  EXPECT_TRUE(file.write("second") && file.commit()) << file.error();
  EXPECT_EQ(get("log"), "first second");
  close(log);
  EXPECT_EQ(entries(), 2u);
}

TEST_F(Files, NothingButItsOwnGetsIntoAFileOfAProcessWithoutStreams) {
  const auto closed = [&](bool is_kept) {
    return holds_in_child([&] {
      for (const int stream : {0, 1, 2}) close(stream);
      if (is_kept) Sys_KeepStandardStreams();
      Sys_FileReplacer file(wide("target"));
      const bool is_written = file.write(std::string(300000, 'x'));
      for (const int stream : {0, 1, 2}) {
        if ((fcntl(stream, F_GETFD) >= 0) != is_kept) return false;
        if (write(stream, "noise", 5) >= 0 && stream != STDIN_FILENO) return false;
      }
      return is_written && file.commit() && get("target") == std::string(300000, 'x');
    });
  };
  EXPECT_TRUE(closed(false));
  EXPECT_TRUE(closed(true));
}

TEST(System, BlocksAreAlignedZeroedAndWritableToTheirEnd) {
  for (const size_t bytes : {size_t{1}, SYS_BLOCK_SIZE, 3 * SYS_BLOCK_SIZE + 1}) {
    auto* block = static_cast<char*>(Sys_AllocateBlock(bytes));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % SYS_BLOCK_SIZE, 0u);
    EXPECT_EQ(block[bytes - 1], 0);
    block[0] = block[bytes - 1] = 'x';
    Sys_ReleaseBlock(block, bytes);
  }
  EXPECT_EQ(Sys_AllocateBlock(0), nullptr);
  EXPECT_EQ(Sys_AllocateBlock(SIZE_MAX - 1), nullptr);
}

TEST(System, KnowsItsEnvironmentAndItself) {
  RWCString value = "untouched";
  EXPECT_FALSE(Sys_Environment::Get("SYSTEM_TEST_UNSET", value));
  EXPECT_EQ(value, "untouched");
  setenv("SYSTEM_TEST_SET", "", 1);
  EXPECT_TRUE(Sys_Environment::Get("SYSTEM_TEST_SET", value));
  EXPECT_TRUE(value.isNull());
  setenv("SYSTEM_TEST_NAME", "a${SYSTEM_TEST_NAME}%b", 1);
  EXPECT_EQ(Sys_Environment::Expand("x ${SYSTEM_TEST_NAME} %SYSTEM_TEST_NAME%%SYSTEM_TEST_SET%."),
            "x a${SYSTEM_TEST_NAME}%b a${SYSTEM_TEST_NAME}%b.");
  for (const char* same :
       {"", "$", "${", "${}", "%%", "100%", "${SYSTEM_TEST_UNSET}", "%UN SET%"}) {
    EXPECT_EQ(Sys_Environment::Expand(same), same);
  }
  EXPECT_FALSE(Sys_ComputerName().isNull());
  EXPECT_EQ(Sys_ProcessName(), "system_test");
  EXPECT_TRUE(Sys_File::Exists(Sys_ExecutableFile()));
}

TEST(System, ModulesGiveTheirSymbolsOrAReason) {
  Sys_Module module;
  EXPECT_EQ(module.symbol("cos"), nullptr);
  EXPECT_FALSE(module.load("no such module.so"));
  EXPECT_THAT(module.error().str(), HasSubstr("no such module.so"));
  ASSERT_TRUE(module.load("libm.so.6")) << module.error();
  EXPECT_NE(module.symbol("cos"), nullptr);
  EXPECT_EQ(module.symbol("no_such_symbol"), nullptr);
  EXPECT_THAT(module.error().str(), HasSubstr("no_such_symbol"));
}

}  // namespace
