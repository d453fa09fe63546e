// Files that are damaged, cut, put there by others, or that the disk has no room for.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include <logging/Log_Capture.h>
#include "synced_world.h"

namespace {

TEST_F(Synced, ServesAWholeTreeWhateverByteIsDamaged) {
  start_once();
  server.SetValue("halvoria\\system\\nodes\\n3\\name", "newer");
  for (const auto& file : {system_file(), user_file()}) {
    SCOPED_TRACE(file);
    const std::string whole = read_file(file);
    const std::string sums = read_file(file.string() + ".sum");
    std::vector<std::string> damaged;
    const bool is_system = file == system_file();
    for (size_t at = 0; at < Header::SIZE; at += is_system ? 1 : 20) {
      damaged.push_back(whole);
      damaged.back()[at] ^= 4;
    }
    for (const size_t length : {0, 1, 7, 13, 22, 24, 153, 184, 216, 220, 221, 223, 224, 225, 229}) {
      damaged.push_back(whole.substr(0, length));
    }
    damaged.push_back(whole.substr(0, whole.size() - 1));
    damaged.push_back(whole + "more");
    for (size_t at = Header::SIZE; at < whole.size(); at += 1 + whole.size() / 10) {
      damaged.push_back(whole);
      damaged.back()[at] ^= 1;
    }
    for (const std::string& bytes : damaged) {
      write_file(file, bytes);
      write_file(file.string() + ".sum", sums);
      const Client next = client(is_system ? nullptr : "ann");
      EXPECT_EQ(content(*next, "halvoria\\conf"), content(server, "halvoria\\conf"));
      EXPECT_EQ(next->GetSubTreeNum("halvoria\\system\\nodes"), 200);
      EXPECT_EQ(next->GetValue("halvoria\\system\\nodes\\n3\\name"), "newer");
      if (is_system) continue;
      EXPECT_EQ(next->GetValue("halvoria\\users\\ann\\colour"), "red");
      EXPECT_TRUE(comes([&] { return next->FinishedWritingSyncFiles(); }));
    }
  }
}

TEST_F(Synced, TheGenerationBeforeIsServedWhenTheNewestIsDamaged) {
  start_once();
  server.SetValue("halvoria\\system\\nodes\\n4\\name", "second");
  start_once();
  ASSERT_TRUE(std::filesystem::exists(system_file().string() + ".old"));
  std::string bytes = read_file(system_file());
  bytes[bytes.size() - 3] ^= 8;
  write_file(system_file(), bytes);
  service.kill();
  {
    const Client offline = client(nullptr);
    EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n4\\name"), "n");
  }
  start_service_again();
  const Client online = client();
  expect_as_served(*online);
}

TEST_F(Synced, AFullDiskLeavesTheGenerationBefore) {
  start_once();
  server.SetValue("halvoria\\system\\nodes\\n4\\name", "second");
  server.SetValue("halvoria\\users\\ann\\colour", RWCString(std::string(5000, 'g')));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  for (const rlim_t room : {0, 100, 1000}) {
    const Log_Capture log;
    const rlimit full{room, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    {
      const Client online = client();
      EXPECT_TRUE(comes([&] { return online->FinishedWritingSyncFiles(); }));
      expect_as_served(*online);
    }
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_TRUE(log.has("is not saved: cannot write"));
  }
  service.kill();
  const Client offline = client();
  EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n4\\name"), "n");
  EXPECT_EQ(offline->GetValue("halvoria\\users\\ann\\colour"), "red");
}

TEST_F(Synced, FilesThatAnotherUserPutIntoAFolderForAllAreNotOurs) {
  if (geteuid() != 0) GTEST_SKIP() << "only the administrator gives files away";
  start_once();
  std::filesystem::permissions(files.path(), std::filesystem::perms(01777));
  constexpr uid_t kOther = 54321;
  ASSERT_EQ(chown(system_file().c_str(), kOther, kOther), 0);
  const std::string theirs = read_file(system_file());
  {
    const Log_Capture log;
    const Client tree = client();
    expect_as_served(*tree);
    EXPECT_TRUE(comes([&] { return tree->FinishedWritingSyncFiles(); }));
    EXPECT_TRUE(log.has("another user has put <"));
    EXPECT_TRUE(log.has("Retrieving full paths from server"));
  }
  // Nor does a link of theirs lead to a file of ours that is written over.
  const TemporaryFolder ours;
  write_file(ours / "precious", theirs);
  std::filesystem::remove(system_file());
  std::filesystem::create_symlink(ours / "precious", system_file());
  ASSERT_EQ(lchown(system_file().c_str(), kOther, kOther), 0);
  {
    const Client tree = client();
    expect_as_served(*tree);
    EXPECT_TRUE(comes([&] { return tree->FinishedWritingSyncFiles(); }));
  }
  EXPECT_EQ(read_file(ours / "precious"), theirs);
  EXPECT_FALSE(std::filesystem::is_symlink(system_file()));
}

}  // namespace
