#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <memory>
#include <thread>
#include <vector>

#include <logging/Log_Capture.h>
#include <system/Sys_Process.h>
#include <utility/Tmr_Base64Utils.h>
#include <utility/Tmr_CfgHook.h>
#include <utility/Tmr_Legend.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>
#include <utility/Tmr_PoolAllocator.h>
#include <utility/Tmr_SocketWrapper.h>
#include <utility/Tmr_StackTrace.h>
#include <utility/Tmr_ValHashMap.h>

namespace {

using testing::AnyOf;
using testing::HasSubstr;

std::string decoded(const RWCString& text, bool skip_line_breaks = true) {
  int length = -1;
  const std::unique_ptr<char[]> bytes(Tmr_Base64Utils::Decode(text, &length, skip_line_breaks));
  if (!bytes) return length == 0 ? "(none)" : "(none, with a length)";
  EXPECT_EQ(bytes[static_cast<size_t>(length)], '\0');
  return {bytes.get(), static_cast<size_t>(length)};
}

TEST(Base64, EveryLengthComesBackExactly) {
  std::string bytes;
  for (int i = 0; i < 70'000; i += 1 + i / 40) {  // beyond a line, beyond a piece
    while (bytes.size() < static_cast<size_t>(i)) bytes += static_cast<char>(bytes.size() * 37);
    for (const bool line_breaks : {false, true}) {
      const RWCString text = Tmr_Base64Utils::Encode(bytes.data(), i, line_breaks);
      ASSERT_EQ(text.first('\n') == RWCString::npos, !line_breaks || i == 0);
      ASSERT_EQ(decoded(text), bytes);
    }
  }
  EXPECT_EQ(Tmr_Base64Utils::Encode("\0\xFF"
                                    "a",
                                    3, false),
            "AP9h");
  EXPECT_EQ(Tmr_Base64Utils::Encode(nullptr, -1, false), "");
}

TEST(Base64, OnlyWholeTextsAreDecoded) {
  const struct {
    const char* text;
    const char* bytes;
  } cases[] = {
      {"", ""},
      {"YQ==", "a"},
      {"YWI=", "ab"},
      {"YWJj", "abc"},
      {"YW\r\nJj\n", "abc"},
      {"YQ", "(none)"},
      {"YQ=", "(none)"},
      {"Y===", "(none)"},
      {"====", "(none)"},
      {"YQ==YQ==", "(none)"},
      {"Y=Q=", "(none)"},
      {"YW-j", "(none)"},
      {"YWJ ", "(none)"},
      {" YWJj", "(none)"},
      {"YWJj\tYWJj", "(none)"},
      {"YWJ\xC3", "(none)"},
  };
  for (const auto& c : cases) EXPECT_EQ(decoded(c.text), c.bytes) << c.text;
  EXPECT_EQ(decoded("YWJj\n", false), "(none)");
  EXPECT_EQ(decoded(std::string("YWJ\0", 4)), "(none)");
}

TEST(Tmr_SocketWrapper, NumericAddressesTellTheirFamily) {
  const auto family = Tmr_SocketWrapper::GetAFTypeIfSupported;
  EXPECT_EQ(family("192.0.2.1"), Tmr_SocketWrapper::IP_TYPE_V4);
  EXPECT_THAT(family("2001:db8::1").str(),
              AnyOf(Tmr_SocketWrapper::IP_TYPE_V6, ""));  // without IPv6
  EXPECT_THAT(family("localhost").str(),
              AnyOf(Tmr_SocketWrapper::IP_TYPE_V6, Tmr_SocketWrapper::IP_TYPE_V4));
  for (const char* unknown : {"", "no such host.invalid", "2001:db8::g", "[::1]"})
    EXPECT_EQ(family(unknown), "") << unknown;
}

TEST(Tmr_SocketWrapper, LocalAddressIsOneOfTheFamilyAskedFor) {
  using Socket = Tmr_SocketWrapper;
  const RWCString v4 = Socket::GetLocalIPAsStringByAF(Sys_ComputerName(), Socket::FAMILY_V4);
  EXPECT_EQ(Socket::GetAFTypeIfSupported(v4), Socket::IP_TYPE_V4);
  EXPECT_EQ(Socket::GetLocalIPAsStringByAF("192.0.2.1", Socket::FAMILY_V4), "192.0.2.1");
  // Good inside this host only: an interface's address comes first, where there is one.
  EXPECT_EQ(Socket::GetLocalIPAsStringByAF("127.0.0.1", Socket::FAMILY_V4),
            Socket::GetLocalIPAsStringByAF("", Socket::FAMILY_V4));
  const RWCString v6 = Socket::GetLocalIPAsStringByAF("192.0.2.1", Socket::FAMILY_V6);
  EXPECT_TRUE(v6.isNull() || v6.first(':') != RWCString::npos) << v6;
  EXPECT_EQ(Socket::GetLocalIPAsStringByAF("192.0.2.1", 10), "");
}

class Hook : public Tmr_CfgHookInterface {
  RWCString GetValue(RWCString path, RWCString default_value) override {
    return path + "," + default_value;
  }
};

TEST(Tmr_CfgHook, AsksTheRegisteredObjectOrAnswersTheDefault) {
  Hook hook;
  EXPECT_EQ(Tmr_CfgHook::GetValue("path", "default"), "default");
  Tmr_CfgHook::RegisterInterface(&hook);
  EXPECT_EQ(Tmr_CfgHook::GetValue("path", "default"), "path,default");
  Tmr_CfgHook::RegisterInterface(nullptr);
  EXPECT_EQ(Tmr_CfgHook::GetValue("path", "default"), "default");
}

TEST(Tmr_Legend, GivesOneNumberToANameWhoeverRegistersIt) {
  Tmr_Legend& legend = Tmr_Legend::GetInstance();
  int first = 0, second = 0;
  std::thread a([&] { first = legend.Register("CFG_TYPE"); });
  std::thread b([&] { second = legend.Register("CFG_TYPE"); });
  a.join(), b.join();
  EXPECT_EQ(first, second);
  EXPECT_NE(legend.Register("CFG_ACTION"), first);
  EXPECT_EQ(legend.GetName(first), "CFG_TYPE");
  for (const int unknown : {-1, 0, 3}) EXPECT_EQ(legend.GetName(unknown), "");
}

TEST(Tmr_StackTrace, IsOneMessageThatNamesTheModule) {
  Log_Capture capture;
  Tmr_StackTrace::TraceStack();
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].level, LOG_LEVEL_ERROR);
  EXPECT_THAT(capture.last(), HasSubstr("  #1 "));
  EXPECT_THAT(capture.last(), HasSubstr("utility_test"));
}

TEST(Tmr_PerformanceMonitorCounters, CountWhatIsBetweenStartAndMark) {
  auto& counters = Tmr_PerformanceMonitorCounters::GetInstance();
  Tmr_PerformanceMonitorCounters::Counter seen;
  Log_Capture capture;
  counters.Start("C_CFG_S"), counters.Mark("C_CFG_S"), counters.Stop("C_CFG_S");
  EXPECT_FALSE(counters.GetCounter("C_CFG_S", seen));

  counters.AddCounter(1, "C_CFG_S");
  counters.Mark("C_CFG_S");
  counters.Start("C_CFG_S"), counters.Mark("C_CFG_S"), counters.Stop("C_CFG_S");
  counters.AddCounter(2, "C_CFG_S");
  counters.Mark("C_CFG_S");
  ASSERT_TRUE(counters.GetCounter("C_CFG_S", seen));
  EXPECT_EQ(seen.marks, 2);
  EXPECT_EQ(seen.type, 1);
  EXPECT_GE(seen.total_ms, seen.longest_ms);
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_THAT(capture.last(), HasSubstr("counter C_CFG_S: 2 times"));
}

TEST(Tmr_PerformanceMonitorCounters, AreOffUnlessTheEnvironmentNamesTheType) {
  EXPECT_FALSE(Tmr_PerformanceMonitorCounters::IsEnabled(2));
  EXPECT_EQ(Tmr_PerformanceMonitorCounters::GetLevel(2), 4);
}

TEST(Tmr_PerformanceMonitorCounters, AreOnForTheTypesThatTheEnvironmentNames) {
  setenv("HALVORIA_PERFORMANCE", "2,13", 1);
  TmrGLog.SetModuleLevel(Tmr_PerformanceMonitorCounters::MODULE, 6);
  EXPECT_TRUE(Tmr_PerformanceMonitorCounters::IsEnabled(2) &&
              Tmr_PerformanceMonitorCounters::IsEnabled(13));
  EXPECT_FALSE(Tmr_PerformanceMonitorCounters::IsEnabled(3));
  EXPECT_EQ(Tmr_PerformanceMonitorCounters::GetLevel(13), 6);
  EXPECT_EQ(Tmr_PerformanceMonitorCounters::GetLevel(3), 4);
}

TEST(Tmr_ValHashMap, KeepsTheFirstValueOfAKey) {
  Tmr_ValHashMap<RWCString, RWCString> map(1024);
  EXPECT_GE(map.buckets(), 1024u);
  EXPECT_TRUE(map.insert("a", "1"));
  EXPECT_FALSE(map.insert("a", "2"));
  RWCString value;
  EXPECT_TRUE(map.find("a", value) && !map.find("b", value));
  EXPECT_EQ(value, "1");
  EXPECT_TRUE(map.remove("a") && !map.remove("a"));
  EXPECT_EQ(map.entries(), 0u);
}

// Slots are told apart by what is written into them; a thread ends while it keeps some.
TEST(Pool, SlotsAreDistinctAndMayBeReleasedByAnotherThread) {
  static constinit Tmr_PoolAllocator pool(24, 11);
  constexpr size_t count = 200'000;  // more than two blocks
  std::vector<size_t*> slots(count);
  for (int round = 0; round < 3; ++round) {
    pool.Reserve(round * count / 2);
    const auto take = [&](size_t from, size_t step) {
      for (size_t i = from; i < count; i += step)
        *(slots[i] = static_cast<size_t*>(pool.Allocate())) = i;
    };
    std::thread other(take, 1, 2);
    take(0, 2);
    other.join();
    const auto release = [&](size_t from, size_t step) {
      for (size_t i = from; i < count; i += step) {
        ASSERT_EQ(*slots[i], i);
        pool.Release(slots[i]);
      }
    };
    std::thread third(release, 0, 3);
    release(1, 3);
    third.join();
    pool.Collapse();  // beside slots in use
    release(2, 3);
    pool.Collapse();
  }
}

}  // namespace
