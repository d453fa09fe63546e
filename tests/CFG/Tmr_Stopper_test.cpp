#include <Tmr/Tmr_Stopper.h>

#include <gtest/gtest.h>

namespace {

TEST(Stopper, CountsOnlyWhatWasStarted) {
  Tmr_Stopper stopper;
  EXPECT_EQ(stopper.Stop(), 0);
  EXPECT_EQ(stopper.Count(), 0);
  stopper.Start();
  const double first = stopper.Milliseconds(), second = stopper.Stop();
  EXPECT_LE(0, first);
  EXPECT_LE(first, second);
  EXPECT_EQ(stopper.Milliseconds(), 0);
  stopper.Start();
  const double third = stopper.Stop();
  EXPECT_EQ(stopper.TotalMilliseconds(), second + third);
  EXPECT_EQ(stopper.Count(), 2);
}

}  // namespace
