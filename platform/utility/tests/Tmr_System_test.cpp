#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <logging/Log_Capture.h>
#include <support/forked.h>
#include <support/temporary_folder.h>
#include <system/Sys_Process.h>
#include <utility/Tmr_FileSystemUtils.h>
#include <utility/Tmr_System.h>
#include <utility/Tmr_Version.h>

namespace {

using testing::HasSubstr;

// As some user in whose home there is nothing yet.
bool holds_for_a_user(const std::filesystem::path& home, const std::function<bool()>& holds) {
  return holds_in_child([&] {
    if (Sys_IsAdministrator() && (chown(home.c_str(), 65534, 65534) != 0 || setuid(65534) != 0)) {
      return false;
    }
    setenv("HOME", home.c_str(), 1);
    unsetenv("XDG_STATE_HOME");
    return holds();
  });
}

TEST(WorkPath, IsTheUsersFolderForState) {
  const TemporaryFolder home;
  const std::string normal = home / ".local/state/halvoria", other = home / "s/halvoria";
  EXPECT_TRUE(holds_for_a_user(home.path(), [&] {
    if (Tmr_System::GetWorkPath("CFG.dll").toUTF8() != normal) return false;
    setenv("XDG_STATE_HOME", "s", 1);  // not absolute
    if (Tmr_System::GetWorkPath("CFG.dll").toUTF8() != normal) return false;
    setenv("XDG_STATE_HOME", (home / "s").c_str(), 1);
    return Tmr_System::GetWorkPath("CFG.dll").toUTF8() == other;
  }));
  for (const std::string& folder : {normal, other}) {
    EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms(0700));
  }
  const Log_Capture log;
  EXPECT_TRUE(holds_for_a_user(home.path(), [&] {
    chmod(home.path().c_str(), 0500);
    setenv("XDG_STATE_HOME", (home / "t").c_str(), 1);
    return Tmr_System::GetWorkPath("CFG.dll").toUTF8() == (home / "t/halvoria").string() &&
           log.last() ==
               "GetWorkPath() : no folder for the files of CFG.dll: cannot make folder <" +
                   (home / "t").string() + ">: Permission denied\n";
  }));
}

TEST(FileSystemUtils, TellReadOnlyFromNotToBeFoundOut) {
  const TemporaryFolder folder;
  const Log_Capture log;
  bool read_only = true;
  EXPECT_TRUE(Tmr_FileSystemUtils::GetReadOnly(folder.file(""), read_only) && !read_only);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
  EXPECT_TRUE(Tmr_FileSystemUtils::GetReadOnly(folder.file(""), read_only) && read_only);
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(Tmr_FileSystemUtils::GetReadOnly(folder.file("none"), read_only));
  EXPECT_TRUE(read_only);
  EXPECT_THAT(log.last(), HasSubstr("none>: No such file or directory"));
}

TEST(Version, IsReadWholeAndComparedByItsNumbers) {
  EXPECT_EQ(Tmr_Version::GetVersion(), "12.2.0.0");
  EXPECT_EQ(Tmr_Version("11.4.1"), Tmr_Version(11, 4, 1, 0));
  EXPECT_EQ(Tmr_Version("4294967295.0.007.10").Text(), "4294967295.0.7.10");
  for (const char* text : {"", ".", "1.", ".1", "1..2", "1.2.3.4.5", "1.2.3.4.", "4294967296", "-1",
                           " 1", "1 ", "1.2b", "x"}) {
    EXPECT_TRUE(Tmr_Version(text).IsNull()) << text;
  }
  const Tmr_Version rising[] = {
      {}, {0, 0, 0, 9}, {0, 0, 1, 0}, {9, 9, 9, 9}, {11, 4, 0, 10}, {11, 4, 1, 0}, {11, 10, 0, 0}};
  for (const Tmr_Version& a : rising) {
    for (const Tmr_Version& b : rising) {
      EXPECT_EQ(a >= b, &a >= &b);
      EXPECT_EQ(a < b, &a < &b);
      EXPECT_EQ(a == b, &a == &b);
    }
  }
}

}  // namespace
