#include <gtest/gtest.h>

#include <logging/Log_Capture.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("tests/logging_test", 502);

TEST(Logging, Smoke) {
  Log_Capture capture;
  logger.info("a %s %d %S %Iu\n", RWCString("x"), 5, RWWString(L"w\u20AC"), size_t{7});
  EXPECT_EQ(capture.last(), "a x 5 w\xE2\x82\xAC 7\n");
  EXPECT_EQ(logger.reject(0, "no %ls", L"x"), 0);
  EXPECT_EQ(capture.lines().back().function, "TestBody");
}

}  // namespace
