#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <events/KestralEvent.h>
#include <logging/Log_Capture.h>

namespace {

TEST(Events, AreOneJsonObjectALineOfTheLog) {
  const struct {
    const char* path;
    const char* read_back;
  } cases[] = {
      {"halvoria\\system\\\"n\"", "halvoria\\system\\\"n\""},
      {"two\nlines", "two\nlines"},
      {"no utf-8: \xFF", "no utf-8: \xEF\xBF\xBD"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_TRUE(
        KestralEvent::CFGPerformance(261, c.path, "Remote", "GetSubTree", 0.25, true, 7).Send());
    ASSERT_EQ(capture.lines().size(), 1u);
    const Log_Capture::Line line = capture.lines()[0];
    EXPECT_EQ(line.level, 5);
    EXPECT_EQ(line.module, KestralEvent::MODULE);
    EXPECT_EQ(line.text.find('\n'), line.text.size() - 1) << line.text;
    const nlohmann::json expected = {{"event", "CFGPerformance"},
                                     {"number", 261},
                                     {"path", c.read_back},
                                     {"source", "Remote"},
                                     {"operation", "GetSubTree"},
                                     {"milliseconds", 0.25},
                                     {"flag", true},
                                     {"count", 7}};
    EXPECT_EQ(nlohmann::json::parse(line.text), expected);
  }
}

TEST(Events, GoNowhereWhenTheLogDoesNotWantThem) {
  EXPECT_FALSE(KestralEvent::CFGPerformance(260, "p", "DB", "GetValue", 1, false, 0).Send());
}

}  // namespace
