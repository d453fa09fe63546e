#include <database/sqlite/Sqlite_ValueCache.h>

namespace {

constexpr size_t kMostBytes = size_t{4} << 20;
constexpr size_t kLargest = 1024;  // bytes of a path and its value
constexpr size_t kBeside = 128;    // bytes that an entry takes besides, about
constexpr size_t kMarks = size_t{1} << 13;

}  // namespace

Db_Result Sqlite_ValueCache::find(std::string_view path, std::string& value) {
  Sqlite_LogState::State state;
  m_is_known = m_log.read(state);
  if (!m_is_known) return Db_Result::FAILED;
  if (state != m_state) {
    m_state = state;
    ++m_number;
    return Db_Result::FAILED;
  }
  const auto found = m_entries.find(path);
  if (found == m_entries.end() || found->second.number != m_number) return Db_Result::FAILED;
  value.assign(found->second.value);
  return found->second.result;
}

void Sqlite_ValueCache::keep(std::string_view path, Db_Result result, std::string_view value) {
  Sqlite_LogState::State state;
  if (!m_is_known || path.size() + value.size() > kLargest) return;
  if (!m_log.read(state) || state != m_state) return;
  auto found = m_entries.find(path);
  if (found == m_entries.end()) {
    if (!was_asked_before(path)) return;
    if (m_bytes > kMostBytes) {
      m_entries.clear();
      m_bytes = 0;
    }
    found = m_entries.try_emplace(std::string(path)).first;
    m_bytes += path.size() + kBeside;
  }
  if (result == Db_Result::NOT_FOUND) value = {};
  Entry& entry = found->second;
  m_bytes += value.size() - entry.value.size();
  entry.number = m_number;
  entry.result = result;
  entry.value.assign(value);
}

bool Sqlite_ValueCache::was_asked_before(std::string_view path) {
  if (m_asked.empty()) m_asked.resize(kMarks);
  const size_t hash = std::hash<std::string_view>()(path);
  const auto mark = static_cast<uint32_t>(hash >> 32);
  uint32_t& place = m_asked[hash % kMarks];
  if (place == mark) return true;
  place = mark;
  return false;
}
