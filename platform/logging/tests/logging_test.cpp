#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include <logging/Log_Capture.h>
#include <logging/Log_Repeats.h>
#include <logging/Log_Settings.h>
#include <logging/Logger.h>
#include <support/temporary_folder.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr Log_Logger logger("tests/logging_test", 502);

// Whether a format compiles with arguments of these types.
template <size_t N>
struct Text {
  char chars[N];
  constexpr Text(const char (&text)[N]) { std::copy_n(text, N, chars); }
};
template <class... A>
constexpr Log_Kind kinds[] = {Log_Argument::kind_of<A>()..., LOG_KIND_NONE};
template <Text format, class... A>
concept Compiles = requires {
  typename std::bool_constant<(Log_CheckFormat(format.chars, kinds<A...>, sizeof...(A)), true)>;
};
enum Plain { PLAIN = 7 };
enum class Scoped {};

static_assert(
    Compiles<"%s %s %s %s %s", RWCString, std::string, std::string_view, const char*, char[4]>);
static_assert(Compiles<"%S %ls %S", RWWString, const wchar_t*, std::wstring>);
static_assert(Compiles<"%p %p %p", const char*, const void*, std::nullptr_t>);
static_assert(Compiles<"%-+ #08.3f%%%*.*d", double, int, int, long>);
static_assert(Compiles<"%hhd %hu %lu %llx %I64u %Iu %zu %i %c", int, short, size_t, long, size_t,
                       size_t, int, Plain, char>);
static_assert(Compiles<"%s", RWCString (*)()>);
static_assert(!Compiles<"%s", int> && !Compiles<"%s", void*> && !Compiles<"%s", std::nullptr_t>);
static_assert(!Compiles<"%s", const wchar_t*> && !Compiles<"%S", const char*> &&
              !Compiles<"%s", RWWString>);
static_assert(!Compiles<"%d", double> && !Compiles<"%f", int> && !Compiles<"%d", const char*>);
static_assert(!Compiles<"%d", Scoped> && !Compiles<"%p", int> && !Compiles<"%s", int (*)()>);
static_assert(!Compiles<"%d %d", int> && !Compiles<"%d", int, int> && !Compiles<"%*d", int>);
static_assert(!Compiles<"%n", int*> && !Compiles<"50%"> && !Compiles<"%y", int> &&
              !Compiles<"%I16d", int> && !Compiles<"%10000d", int> && !Compiles<"%I3">);

template <class... A>
std::string render(Log_Format<A...> format, const A&... args) {
  return Log_Render(format.text, {Log_Argument(args)...});
}

TEST(LogFormat, WritesWhatPrintfWould) {
  const std::pair<std::string, const char*> rows[] = {
      {render("%5d|%-5d|%05d|%+d|% d", 42, 42, 42, 42, 42), "   42|42   |00042|+42| 42"},
      {render("%d %u %d", -1, -1, UINT_MAX), "-1 4294967295 4294967295"},
      {render("%x %X %#x %o", -1, static_cast<signed char>(-1), 255, 8), "ffffffff FF 0xff 10"},
      {render("%d %hd", LLONG_MIN, 70000), "-9223372036854775808 70000"},
      {render("%Iu %I64u %lu %zu", SIZE_MAX, SIZE_MAX, SIZE_MAX, SIZE_MAX),
       "18446744073709551615 18446744073709551615 18446744073709551615 18446744073709551615"},
      {render("%d %d %c %i", true, PLAIN, 'c', 'c'), "1 7 c 99"},
      {render("%.2f %8.3f %e %g", 2.345, -1.5, 1e10, 1e-7), "2.35   -1.500 1.000000e+10 1e-07"},
      {render("%*d|%-*d|%.*f|%.*s", 4, 1, 4, 2, 1, 0.25, -1, "all"), "   1|2   |0.2|all"},
      {render("%p %p", reinterpret_cast<void*>(0x1f), nullptr), "0x1f (nil)"},
      {render("100%% %s", "of"), "100% of"},
      {render(""), ""},
  };
  for (const auto& [written, wanted] : rows) EXPECT_EQ(written, wanted);
}

TEST(LogFormat, WritesTextOfEveryKindWhole) {
  const char* null_text = nullptr;
  const wchar_t* null_wide = nullptr;
  const std::string with_nul("a\0b\x1b", 4);
  const std::string long_text(100000, 'x');
  EXPECT_EQ(render("%s %S", null_text, null_wide), "(null) (null)");
  EXPECT_EQ(render("<%s><%s><%S>", RWCString(), std::string_view(), RWWString()), "<><><>");
  EXPECT_EQ(render("%s", with_nul), with_nul);
  EXPECT_EQ(render("%s", long_text), long_text);
  EXPECT_EQ(render("%S %ls", L"M\u00FC\U0001F642", RWWString::fromUTF8("bad \xFF")),
            "M\xC3\xBC\xF0\x9F\x99\x82 bad \xFF");
  EXPECT_EQ(render("%6s|%-6s|%.2s", "ab", "ab", "abc"), "    ab|ab    |ab");
  EXPECT_EQ(render("%.2s|%.3s|%.1S", "a\xC3\xBC", "a\xC3\xBC", L"\u20AC"), "a|a\xC3\xBC|");
}

TEST(Logger, RecordsOriginAndReturnsTheAnswer) {
  Log_Capture capture;
  EXPECT_EQ(logger.reject(-1, "no <%s>\n", RWCString("x")), -1);
  const int line = __LINE__ - 1;
  EXPECT_TRUE(logger.reject_at(LOG_LEVEL_TRACE, RWCString("answer"), "seven") == "answer");
  const auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, 3);
  EXPECT_EQ(lines[0].module, 502);
  EXPECT_EQ(lines[0].file, "tests/logging_test");
  EXPECT_EQ(lines[0].function, "TestBody");
  EXPECT_EQ(lines[0].line, line);
  EXPECT_EQ(lines[1].level, 7);
  EXPECT_EQ(capture.text(), "no <x>\nseven");
}

TEST(Logger, CallsArgumentsOnlyWhenTheGateIsOpen) {
  int calls = 0;
  const auto counted = [&calls] { return ++calls; };
  TmrGLog.SetLevel(LOG_LEVEL_WARNING);
  logger.info("%d", counted);
  EXPECT_EQ(calls, 0);
  Log_Capture capture;
  logger.info("%d", counted);
  EXPECT_EQ(calls, 1);
  // An argument that logs by itself doesn't change where the outer message comes from.
  logger.warning("outer %s", [] { return logger.reject_at(5, RWCString("in"), "inner"); });
  EXPECT_EQ(capture.lines().back().level, 4);
  EXPECT_EQ(capture.text(), "1innerouter in");
}

TEST(LogCapture, NestsAndRestoresTheGates) {
  TmrGLog.SetLevel(LOG_LEVEL_ERROR);
  TmrGLog.SetModuleLevel(7, LOG_LEVEL_DETAIL);
  TmrGLog.SetLevel(LOG_LEVEL_WARNING);
  constexpr Log_Logger seven("seven", 7);
  {
    Log_Capture outer;
    logger.trace("1");
    {
      Log_Capture inner;
      TmrGLog.SetLevel(LOG_LEVEL_SEVERE);
      logger.trace("2");
      EXPECT_EQ(inner.text(), "2");
    }
    logger.trace("3");
    EXPECT_EQ(outer.text(), "123");
    EXPECT_TRUE(outer.has("2") && !outer.has("23"));
    outer.clear();
    EXPECT_EQ(outer.last(), "");
  }
  EXPECT_FALSE(logger.is_on(LOG_LEVEL_ERROR));
  EXPECT_TRUE(logger.is_on(LOG_LEVEL_SEVERE));
  EXPECT_TRUE(seven.is_on(LOG_LEVEL_DETAIL) && !seven.is_on(LOG_LEVEL_TRACE));
  EXPECT_EQ(TmrGLog.StoreParams("f", "g", 1, LOG_LEVEL_SEVERE, 99999, 1), 1);
  EXPECT_EQ(TmrGLog.StoreParams("f", "g", 1, LOG_LEVEL_ERROR, -1, 1), 0);
}

// Sets environment variables; they are gone when the test ends.
struct Environment {
  Environment(std::initializer_list<std::pair<const std::string, std::string>> set) : values(set) {
    for (const auto& [name, value] : values) setenv(name.c_str(), value.c_str(), 1);
  }
  ~Environment() {
    for (const auto& [name, value] : values) unsetenv(name.c_str());
  }
  const std::map<std::string, std::string> values;
};

std::vector<std::string> lines_of(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Log_Settings to_file(Log_Settings::Output output, const std::string& path) {
  Log_Settings settings;
  settings.output = output;
  settings.file = path;
  return settings;
}

TEST(LogSettings, TakeWhatIsRightAndNameWhatIsWrong) {
  Log_Settings settings;
  std::vector<std::string> complaints;
  settings.ReadLevels(" 5, 502=7 ,197=severe,1024=3,3=8,=4,x,", "HALVORIA_LOG", complaints);
  EXPECT_EQ(settings.level, 5);
  EXPECT_EQ(settings.module_levels, (std::map<int, int>{{197, 2}, {502, 7}}));
  EXPECT_THAT(complaints,
              ElementsAre("HALVORIA_LOG: \"1024=3\" is ignored, a module is 0..1023",
                          HasSubstr("\"3=8\""), HasSubstr("\"=4\""), HasSubstr("\"x\"")));
  complaints.clear();
  for (const char* wrong : {"file", "file:", "tape:x", "stderr:x"}) {
    settings.ReadOutput(wrong, "HALVORIA_LOG_OUTPUT", complaints);
  }
  EXPECT_EQ(complaints.size(), 4u);
  EXPECT_EQ(settings.output, Log_Settings::TO_STDERR);
  settings.ReadOutput("json:C:/a b.log", "HALVORIA_LOG_OUTPUT", complaints);
  EXPECT_EQ(settings.output, Log_Settings::TO_JSON);
  EXPECT_EQ(settings.file, "C:/a b.log");
}

TEST(LogSettings, EnvironmentWinsOverTheFile) {
  const TemporaryFolder folder;
  const std::string path = folder / "log.ini";
  std::ofstream(path)
      << "\xEF\xBB\xBFlevel = detail\r\nmodule.7 = 2 ; quiet\r\n# a comment\r\noutput = json\r\n"
         "file = /a/b.log\r\nmax_bytes = 5\r\nmax_files=3\r\nmax_repeats = 0\r\ncolour = red\r\nno sign\r\n";
  const Environment environment{
      {"HALVORIA_LOG_FILE", path}, {"HALVORIA_LOG", "3"}, {"HALVORIA_LOG_OUTPUT", "file:/c.log"}};
  std::vector<std::string> complaints;
  const Log_Settings settings = Log_Settings::FromEnvironment(complaints);
  EXPECT_EQ(settings.level, 3);
  EXPECT_EQ(settings.module_levels, (std::map<int, int>{{7, 2}}));
  EXPECT_EQ(settings.output, Log_Settings::TO_FILE);
  EXPECT_EQ(settings.file, "/c.log");
  EXPECT_EQ(settings.max_bytes, Log_Settings().max_bytes);
  EXPECT_EQ(settings.max_files, 3u);
  EXPECT_EQ(settings.max_repeats, 0u);
  EXPECT_THAT(complaints, ElementsAre(HasSubstr("\"max_bytes = 5\""), HasSubstr("\"colour = red\""),
                                      HasSubstr("line 10")));
}

TEST(LogSettings, AreReadByTheFirstMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const Environment environment{{"HALVORIA_LOG", "2,502=5,7=9"}, {"HALVORIA_LOG_OUTPUT", "stderr"}};
  const auto log_and_leave = [] {
    constexpr Log_Logger other("other", 3);
    logger.info("shown\n");
    logger.detail("hidden");
    other.error("hidden");
    std::exit(0);
  };
  EXPECT_EXIT(log_and_leave(), testing::ExitedWithCode(0),
              "^logging: HALVORIA_LOG: \"7=9\" is ignored, a level 0..7 is wanted\n"
              "[^\n]* information 502 tests/logging_test:[0-9]+ operator\\(\\): shown\n$");
}

TEST(LogOutput, WritesOneLineEndAndWholeJsonObjects) {
  const TemporaryFolder folder;
  const std::string text = folder / "text.log", json = folder / "json.log";
  ASSERT_TRUE(TmrGLog.Apply(to_file(Log_Settings::TO_FILE, text)));
  for (const char* message : {"none", "one\n", "two\n\n", "\x1b[2Jthree\nmore"})
    logger.error("%s", message);
  EXPECT_THAT(lines_of(text),
              ElementsAre(HasSubstr(": none"), HasSubstr(": one"), HasSubstr(": two"),
                          HasSubstr(": \\x1b[2Jthree"), "\tmore"));
  ASSERT_TRUE(TmrGLog.Apply(to_file(Log_Settings::TO_JSON, json)));
  logger.severe("say \"%s\"\n\x01 \xFF\n", "x\\y");
  const auto lines = lines_of(json);
  ASSERT_EQ(lines.size(), 1u);
  const auto object = nlohmann::json::parse(lines[0]);
  EXPECT_EQ(object["text"], "say \"x\\y\"\n\x01 \xEF\xBF\xBD");
  EXPECT_EQ(object["level"], "severe");
  EXPECT_EQ(object["module"], 502);
  EXPECT_EQ(object["pid"], getpid());
}

TEST(LogOutput, RotatesAndKeepsTheNewestFiles) {
  const TemporaryFolder folder;
  Log_Settings settings = to_file(Log_Settings::TO_FILE, folder / "a.log");
  settings.max_bytes = 1024;
  settings.max_files = 2;
  ASSERT_TRUE(TmrGLog.Apply(settings));
  for (int i = 0; i < 100; ++i) logger.error("message %d", i);
  EXPECT_THAT(lines_of(folder / "a.log").back(), HasSubstr("message 99"));
  for (const char* kept : {"a.log", "a.1.log", "a.2.log"}) {
    EXPECT_LE(std::filesystem::file_size(folder / kept), 1024u) << kept;
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "a.3.log"));
}

TEST(LogOutput, DropsLinesOfAFullDiskAndFallsBackToStandardError) {
  const TemporaryFolder folder;
  ASSERT_TRUE(TmrGLog.Apply(to_file(Log_Settings::TO_FILE, "/dev/full")));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(logger.reject(i, "%s", std::string(5000, 'x')), i);
  testing::internal::CaptureStderr();
  std::ofstream(folder / "plain");
  EXPECT_FALSE(TmrGLog.Apply(to_file(Log_Settings::TO_JSON, folder / "plain/log")));
  logger.error("still heard");
  const std::string heard = testing::internal::GetCapturedStderr();
  EXPECT_THAT(heard, HasSubstr("plain/log"));
  EXPECT_THAT(heard, HasSubstr("still heard\n"));
}

TEST(LogOutput, HoldsBackALineThatComesAgainAndAgainAndTellsHowOften) {
  using std::chrono::milliseconds;
  Log_Repeats repeats(10);
  const Log_Repeats::Time start = std::chrono::steady_clock::now();
  const Log_Origin origin = {"file", "function", 7, 3, 502};
  const auto count = [&](std::string_view text, int times) {
    int admitted = 0;
    for (int i = 0; i < times; ++i) admitted += repeats.admits(origin, text);
    return admitted;
  };
  EXPECT_TRUE(repeats.next_second(start).empty());
  EXPECT_EQ(count("down\n", 1000), 10);
  EXPECT_EQ(count("other\n", 10), 10) << "ten are not too many";
  EXPECT_TRUE(repeats.next_second(start + milliseconds(999)).empty());
  EXPECT_EQ(count("down\n", 1), 0);
  const auto held_back = repeats.next_second(start + milliseconds(1000));
  ASSERT_EQ(held_back.size(), 1u);
  EXPECT_EQ(held_back[0].text, "down (and 991 times more)");
  EXPECT_EQ(held_back[0].origin.line, 7);
  EXPECT_EQ(count("down\n", 11), 10) << "a second later";
  EXPECT_EQ(Log_Repeats(0).admits(origin, "x"), true);

  const TemporaryFolder folder;
  const std::string path = folder / "a.log";
  Log_Settings settings = to_file(Log_Settings::TO_FILE, path);
  settings.max_repeats = 2;
  ASSERT_TRUE(TmrGLog.Apply(settings));
  const Log_Capture all;
  for (int i = 0; i < 5; ++i) logger.error("down\n");
  TmrGLog.Flush();
  EXPECT_EQ(all.lines().size(), 5u);
  const auto lines = lines_of(path);
  EXPECT_THAT(lines.back(), HasSubstr("down (and "));
  EXPECT_LT(lines.size(), 6u);
}

TEST(LogOutput, OfTheChildOfAForkIsItsOwn) {
  const TemporaryFolder folder;
  ASSERT_TRUE(TmrGLog.Apply(to_file(Log_Settings::TO_FILE, folder / "{pid}.log")));
  std::atomic<bool> is_over{false};
  std::thread busy([&] {
    for (int i = 0; !is_over; ++i) logger.error("%d", i);
  });
  for (int i = 0; i < 10; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      logger.error("the child's");
      _exit(0);
    }
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "no thread holds a lock there";
    EXPECT_THAT(lines_of(folder / (std::to_string(child) + ".log")),
                ElementsAre(HasSubstr("the child's")));
  }
  is_over = true;
  busy.join();
}

TEST(LogOutput, ThreadsWriteWholeLinesWhileLevelsAndCapturesChange) {
  const TemporaryFolder folder;
  const std::string path = folder / "many.log";
  ASSERT_TRUE(TmrGLog.Apply(to_file(Log_Settings::TO_FILE, path)));
  constexpr int kMessages = 2000;
  Log_Capture all;
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([id] {
      for (int i = 0; i < kMessages; ++i) {
        logger.error("thread %d message %d %s", id, i, [] { return RWCString("end"); });
        logger.trace("only captured");
      }
    });
  }
  threads.emplace_back([] {
    for (int i = 0; i < 200; ++i) {
      Log_Capture brief;
      TmrGLog.SetLevel(3 + i % 4);
      TmrGLog.SetModuleLevel(502, 3 + i % 3);
      logger.severe("changed");
      EXPECT_TRUE(brief.has("changed"));
    }
  });
  for (auto& thread : threads) thread.join();
  int next[4] = {}, whole = 0;
  for (const std::string& line : lines_of(path)) {
    int id = 0, number = 0;
    const size_t at = line.find("thread ");
    if (at == line.npos) continue;
    ASSERT_EQ(std::sscanf(line.c_str() + at, "thread %d message %d end", &id, &number), 2) << line;
    EXPECT_EQ(number, next[id]++) << "messages of a thread keep their order";
    whole += line.substr(line.size() - 4) == " end";
  }
  EXPECT_EQ(whole, 4 * kMessages);
  EXPECT_EQ(all.lines().size(), 8u * kMessages + 200);
}

}  // namespace
