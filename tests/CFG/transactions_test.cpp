#include <gtest/gtest.h>

#include <CFG/CFG_Factory.h>
#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/CFG_Transaction.h>
#include <CFG/CFG_TransactionGuard.h>
#include <logging/Log_Capture.h>
#include "recording_repository.h"
#include "test_trees.h"

namespace {

TEST(Transactions, EachKindStartsAndEndsOnce) {
  RecordingRepository repository;
  { const CFG_Transaction transaction(&repository); }
  { const CFG_TransactionGuard transaction(&repository); }
  EXPECT_EQ(repository.calls, "start;end;start;end;");
  repository.calls.clear();
  repository.answer = FALSE;
  { const CFG_RepositoryTransaction transaction(&repository); }
  EXPECT_EQ(repository.calls, "start;end;") << "a start that failed is ended all the same";
}

template <class Transaction>
void expect_copies_to_end_nothing() {
  RecordingRepository one, other;
  {
    Transaction first(&one), second(&other);
    const Transaction copy(first);
    first = second;
  }
  EXPECT_EQ(one.calls + other.calls, "start;end;start;end;");
}

TEST(Transactions, CopiesEndNothing) {
  expect_copies_to_end_nothing<CFG_RepositoryTransaction>();
  expect_copies_to_end_nothing<CFG_Transaction>();
  RecordingRepository repository;
  CFG_RepositoryTransaction idle;
  idle = CFG_RepositoryTransaction(&repository);
  EXPECT_TRUE(idle.WasRepositorySet());
  EXPECT_EQ(repository.calls, "start;end;");
}

TEST(Transactions, WithoutARepositoryNothingHappensUntilOneIsSet) {
  RecordingRepository repository;
  Log_Capture capture;
  {
    CFG_RepositoryTransaction idle;
    EXPECT_FALSE(idle.WasRepositorySet());
    const CFG_Transaction nothing(nullptr);
  }
  EXPECT_TRUE(capture.lines().empty());
  {
    CFG_RepositoryTransaction late;
    late.SetRepositoryServices(&repository);
    EXPECT_TRUE(late.WasRepositorySet());
    EXPECT_EQ(repository.calls, "start;");
    EXPECT_EQ(capture.lines().back().file, "src/CFG/CFG_RepositoryTransaction");
  }
  EXPECT_EQ(repository.calls, "start;end;");
}

TEST(Transactions, AGuardOverNothingUsesTheRepositoryOfTheProcess) {
  { const CFG_TransactionGuard nowhere(nullptr); }  // no parameters file: there is none
  CFG_SubTree tree("halvoria");
  ASSERT_NE(CFG_Factory::GetRepositoryServices(&tree), nullptr);
  Log_Capture capture;
  { const CFG_TransactionGuard guard(nullptr); }
  EXPECT_TRUE(capture.has("Cfg already init, return it"));
}

TEST(Updates, LockFirstAndUnlockLastWhateverHappens) {
  const struct {
    bool rollback;
    int answer;  // of the store
    int expected;
    const char* calls;
  } cases[] = {
      {false, TRUE, TRUE, "lock;unlock;"},
      {true, TRUE, TRUE, "lock;rollback;unlock;"},
      {true, FALSE, FALSE, "lock;rollback;unlock;"},
      {false, FALSE, FALSE, "lock;unlock;"},  // could not be saved
  };
  for (const auto& c : cases) {
    RecordingRepository repository;
    repository.answer = c.answer;
    EXPECT_TRUE(repository.StartTransactionUpdateBaseRep());
    EXPECT_EQ(repository.EndTransactionUpdateBaseRep(c.rollback), c.expected);
    EXPECT_EQ(repository.calls, c.calls);
    EXPECT_TRUE(repository.StartTransactionUpdateSecondaryRep());
    EXPECT_TRUE(repository.EndTransactionUpdateSecondaryRep(c.rollback));
    EXPECT_EQ(repository.calls, c.calls) << "there is no secondary store";
  }
}

TEST(Updates, WriteTransactionsAreTransactions) {
  RecordingRepository repository;
  repository.StartWriteTransaction();
  repository.EndWriteTransaction();
  EXPECT_EQ(repository.calls, "start;end;");
}

}  // namespace
