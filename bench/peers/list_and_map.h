// The usual cache of a few lines: a list in the order of use, a map into it, and a mutex.
#pragma once

#include <list>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace bench {

class list_and_map {
 public:
  static constexpr const char* name = "std::list, std::unordered_map and a mutex";

  explicit list_and_map(size_t capacity) : m_capacity(capacity) {}

  bool get(const std::string& key, std::string& out) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_index.find(key);
    if (found == m_index.end()) return false;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    out = found->second->second;
    return true;
  }
  void set(const std::string& key, const std::string& value) {
    const std::lock_guard guard(m_mutex);
    m_entries.emplace_front(key, value);
    const auto [at, is_new] = m_index.try_emplace(key, m_entries.begin());
    if (!is_new) {
      m_entries.erase(at->second);
      at->second = m_entries.begin();
    }
    if (m_index.size() <= m_capacity) return;
    m_index.erase(m_entries.back().first);
    m_entries.pop_back();
  }

 private:
  using entries = std::list<std::pair<std::string, std::string>>;
  const size_t m_capacity;
  std::mutex m_mutex;
  entries m_entries;
  std::unordered_map<std::string, entries::iterator> m_index;
};

}  // namespace bench
