#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <logging/Log_Capture.h>
#include <support/temporary_folder.h>
#include <utility/Tmr_LockFileGuard.h>

namespace {

using std::chrono::milliseconds;

TEST(LockFileGuard, TakesTheLockOfItsTypeAndSaysWhatKeepsItFrom) {
  const TemporaryFolder folder;
  const RWWString file = folder.file("M\xC3\xBCnchen.LOCK");
  const Log_Capture log;
  Tmr_LockFileGuard reader(file, 1), other(file, 1), odd(file, 7);
  EXPECT_FALSE(reader.IsLocked());
  ASSERT_TRUE(reader.Lock() && reader.IsLocked());
  EXPECT_TRUE(other.Lock(milliseconds(0)));
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(odd.Lock(milliseconds(3)));
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.last(), "Lock() : others hold lock file <" + file.toUTF8().str() +
                            ">, no exclusive lock after 3 ms\n");

  other.Release();
  reader.SetType(0);
  EXPECT_FALSE(reader.IsLocked());
  ASSERT_TRUE(reader.Lock(milliseconds(0)));
  EXPECT_FALSE(other.Lock(milliseconds(0)));
  EXPECT_EQ(reader.ReleaseAndDelete(), 0);
  EXPECT_FALSE(std::filesystem::exists(folder / "M\xC3\xBCnchen.LOCK"));
  {
    Tmr_LockFileGuard short_lived(file, 0);
    ASSERT_TRUE(short_lived.Lock(milliseconds(0)));
  }
  EXPECT_TRUE(odd.Lock(milliseconds(0)));

  Tmr_LockFileGuard nowhere(folder.file("none/x.LOCK"), 0);
  EXPECT_FALSE(nowhere.Lock());
  EXPECT_EQ(log.last(), "Lock() : cannot open the lock file <" + (folder / "none/x.LOCK").string() +
                            ">: No such file or directory\n");
}

}  // namespace
