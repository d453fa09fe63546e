// What connectors tell about themselves: performance counters, and the statistics of requests in
// the cache that all processes of the installation share.
#include <CFG/CFG_Connector.h>
#include <CFG/remote/request_argument.h>
#include <datagrid/DataGridConfigurations.h>
#include <logging/Logger.h>
#include <system/Sys_Process.h>
#include <thread/ForkHandler.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>

using namespace cfg::protocol;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Connector", CFG_SERVICE_ID / 10000);

constexpr char kCacheName[] = "CFGConnectorCache";
constexpr int kCounters = 3;  // the type of performance monitoring

// What is counted: for the application, for this process of it, and for all.
struct KeySuffixes {
  RWCString application = RWCString("_") + Sys_ProcessName();
  RWCString process = application + "_" + RWCString(std::to_string(Sys_ProcessId()));
  RWCString total = "Total";
};

// Held while the cache is asked.
ForkReleasedMutex& statistics_mutex = *new ForkReleasedMutex;

}  // namespace

std::atomic<bool> CFG_Connector::m_report_to_cache{false};
std::atomic<int> CFG_Connector::m_ConectorCnt{0};

void CFG_Connector::begin_statistics() {
  if (CounterLevel() > 4) {
    m_counter = "CFG_REMOTE_" + RWCString(std::to_string(++m_ConectorCnt));
    Tmr_PerformanceMonitorCounters::GetInstance().AddCounter(kCounters, m_counter);
  }
  if (m_report_to_cache) connect_cache();
}

int CFG_Connector::CounterLevel() {
  constexpr int unknown = -1;
  static constinit std::atomic<int> level{unknown};  // asked for once, or by several at a time
  if (level == unknown) level = Tmr_PerformanceMonitorCounters::GetLevel(kCounters);
  return level;
}

void CFG_Connector::CountConnect() {
  if (m_counter.isNull() || IsConnected()) return;
  Tmr_PerformanceMonitorCounters::GetInstance().Start(m_counter);
}

void CFG_Connector::CounterDisconnect() {
  if (!m_counter.isNull()) Tmr_PerformanceMonitorCounters::GetInstance().Stop(m_counter);
}

void CFG_Connector::connect_cache() {
  logger.trace("before creating Ignite cache client\n");
  try {
    const std::string address =
        DataGridConfigurations::GetIgniteIp() + ":" + DataGridConfigurations::GetIgnitePort();
    m_cache.Connect(kCacheName, address, true, "", "", "");
    logger.trace("After creating Ignite cache client\n");
  } catch (const std::exception& e) {
    logger.error("Connection to Ignite Cache failed: %s",
                 *e.what() ? e.what() : "Unknown exception");
  }
}

// The arguments as one text, in the order in which they travel. The bytes of a subtree say
// nothing; nor does a flag, but where subtrees are merged or not.
RWCString CFG_Connector::statistics_key(const CommandRow& row, Arguments arguments) {
  using K = cfg::protocol::Argument;
  RWCString key;
  const auto add = [&](std::string_view text) {
    if (!key.isNull()) key += ';';
    key += text;
  };
  size_t place = 0;
  for (const Argument& argument : arguments) {
    const K kind = place < std::size(row.arguments) ? row.arguments[place] : K::NONE;
    ++place;
    switch (kind) {
      case K::SUBTREE:
      case K::COMPRESSED:
      case K::MERGE:
        break;
      case K::INDEX:
        add(std::to_string(argument.number));
        break;
      case K::RULES:
        if (row.command != Command::GET_VALUE_BY_SEARCH_RULE) key += ';';
        if (row.command == Command::GET_SUB_TREE_ONLY_WITH_VALUES) {
          key += (&argument)[1].number ? "merge true;" : "merge false;";
        }
        for (long i = 0; i < argument.number; ++i) key.append(argument.rule(i)) += ';';
        break;
      case K::NONE:
        (key += ';').append(argument.text);
        break;
      default:
        add(argument.text);
    }
  }
  return key;
}

bool CFG_Connector::report_to_cache(const char* command, RWCString key) {
  logger.trace("Enter - report to cache is enabled\n");
  if (!m_cache.IsConnected()) return false;
  search_and_replace(key, ",", ";");
  const std::string base = std::string(command) + " params-" + key.str();
  const KeySuffixes suffixes;
  const RWCString* const counted_for[] = {&suffixes.application, &suffixes.process,
                                          &suffixes.total};
  for (const RWCString* who : counted_for) increment_cache_key(base + who->str());
  RWCString kind = m_connection_kind;
  kind.toLower();
  if (kind.index("new") != RWCString::npos) {
    for (const RWCString* who : counted_for) increment_cache_key("New_Connections" + who->str());
  }
  logger.trace("End report\n");
  return true;
}

void CFG_Connector::increment_cache_key(std::string key) {
  const MutexGuard guard(statistics_mutex);
  const int count = m_cache.Get(key);
  m_cache.Put(key, count + 1);
}

void CFG_Connector::search_and_replace(RWCString& text, const char* what, const char* with) {
  const std::string_view old_text = what ? what : "", new_text = with ? with : "";
  if (old_text.empty()) return;
  for (size_t at = text.index(old_text); at != RWCString::npos;
       at = text.index(old_text, at + new_text.size())) {
    text.replace(at, old_text.size(), new_text);
  }
}
