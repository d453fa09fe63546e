#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <support/forked.h>
#include <support/temporary_folder.h>
#include <system/Sys_File.h>
#include <system/Sys_FileSearch.h>
#include <system/Sys_Folder.h>
#include <system/Sys_Process.h>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

Sys_FolderAccess access_to(const RWWString& folder) {
  RWCString error;
  const Sys_FolderAccess access = Sys_AccessToFolder(folder, error);
  EXPECT_EQ(error.isNull(), access != SYS_FOLDER_UNKNOWN);
  return access;
}

TEST(Folder, IsMadeWithThoseAboveIt) {
  const TemporaryFolder folder;
  RWCString error;
  umask(022);
  EXPECT_TRUE(Sys_MakeFolders(folder.file("a\\M\xC3\xBCnchen/c/"), 0700, error)) << error;
  EXPECT_EQ(fs::status(folder / "a").permissions(), fs::perms(0700));
  EXPECT_TRUE(fs::is_directory(folder / "a/M\xC3\xBCnchen/c"));
  EXPECT_TRUE(Sys_MakeFolders(folder.file("a"), 0777, error)) << error;
  EXPECT_EQ(fs::status(folder / "a").permissions(), fs::perms(0700));

  std::ofstream(folder / "file");
  EXPECT_FALSE(Sys_MakeFolders(folder.file("file"), 0700, error));
  EXPECT_THAT(error.str(), HasSubstr("file>: Not a directory"));
  EXPECT_FALSE(Sys_MakeFolders(folder.file("file/below"), 0700, error));
  EXPECT_FALSE(Sys_MakeFolders(L"", 0700, error));
  EXPECT_TRUE(Sys_MakeFolders(L"/", 0700, error));
}

TEST(Folder, IsWrittenToTellWhetherItCanBe) {
  const TemporaryFolder folder;
  const RWWString name = RWWString::fromUTF8(folder.path().string());
  EXPECT_EQ(access_to(name), SYS_FOLDER_WRITABLE);
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_EQ(access_to(folder.file("none")), SYS_FOLDER_UNKNOWN);
  std::ofstream(folder / "file");
  EXPECT_EQ(access_to(folder.file("file")), SYS_FOLDER_UNKNOWN);
  fs::permissions(folder.path(), fs::perms(0555));  // for the administrator, too
  EXPECT_EQ(access_to(name), SYS_FOLDER_READ_ONLY);
  fs::permissions(folder.path(), fs::perms(0755));
  EXPECT_TRUE(holds_in_child(
      [&] { return setuid(65534) == 0 && access_to(name) == SYS_FOLDER_READ_ONLY; }));
  EXPECT_TRUE(holds_in_child([&] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    return access_to(name) == SYS_FOLDER_UNKNOWN;
  }));
}

TEST(Folder, OnAReadOnlyFileSystemIsReadOnlyForAll) {
  const TemporaryFolder folder;
  const RWWString name = RWWString::fromUTF8(folder.path().string());
  enum { AS_EXPECTED, WRONG, NO_MOUNT };
  const int status = status_of_child([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", folder.path().c_str(), "tmpfs", MS_RDONLY, nullptr) != 0) {
      return NO_MOUNT;
    }
    return access_to(name) == SYS_FOLDER_READ_ONLY ? AS_EXPECTED : WRONG;
  });
  if (status == NO_MOUNT) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, AS_EXPECTED);
}

TEST(FileSearch, FindsByFormAndKeepsEveryName) {
  const TemporaryFolder folder;
  const std::string odd[] = {"cfg_",     "cfg_A_x",     "cfg_\xFF\xC3",
                             "cfg_a\nb", "cfg_a_%n*?[", "cfg_" + std::string(251, 'n')};
  for (const std::string& name : odd) std::ofstream(folder / name) << name;
  std::ofstream(folder / "Cfg_other");
  std::ofstream(folder / "xcfg_a");
  fs::create_directory(folder / "cfg_folder");
  fs::create_symlink("cfg_", folder / "cfg_link");

  const auto names = [&](const wchar_t* pattern) {
    std::vector<Sys_FoundFile> found;
    RWCString error;
    EXPECT_TRUE(Sys_FindFiles(RWWString::fromUTF8(folder.path().string()), pattern, found, error));
    std::vector<std::string> all;
    for (const Sys_FoundFile& file : found) {
      all.push_back(file.name.toUTF8());
      EXPECT_EQ(file.size, fs::file_size(folder / all.back()));
      const auto age = std::chrono::system_clock::now() - file.written;
      EXPECT_LT(std::chrono::abs(age), std::chrono::hours(1));
    }
    std::sort(all.begin(), all.end());
    return all;
  };
  EXPECT_THAT(names(L"cfg_*"), testing::UnorderedElementsAreArray(odd));
  EXPECT_THAT(names(L"cfg_*_*"), ElementsAre("cfg_A_x", "cfg_a_%n*?["));
  EXPECT_THAT(names(L"*cfg_a"), ElementsAre("xcfg_a"));
  EXPECT_THAT(names(L"cfg_"), ElementsAre("cfg_"));
  EXPECT_THAT(names(L"cfg?"), ElementsAre());
  EXPECT_THAT(names(L"*f*a*["), ElementsAre("cfg_a_%n*?["));
  EXPECT_THAT(names(L""), ElementsAre());

  std::vector<Sys_FoundFile> found(1);
  RWCString error;
  EXPECT_FALSE(Sys_FindFiles(folder.file("none"), L"*", found, error));
  EXPECT_THAT(error.str(), HasSubstr("none>: No such file"));
  EXPECT_EQ(found.size(), 1u);
  for (const std::string& name : odd) EXPECT_EQ(Sys_File::Remove(folder.file(name)), 0);
  EXPECT_EQ(Sys_File::Remove(folder.file(odd[0])), ENOENT);
}

}  // namespace
