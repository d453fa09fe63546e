// The hash map of the installation's interfaces.
#pragma once

#include <cstddef>
#include <functional>
#include <unordered_map>

template <class K>
struct Tmr_DefaultHash {
  size_t operator()(const K& key) const { return std::hash<K>()(key); }
};

// Keys and values are copied in and out. As safe with threads as a standard container.
template <class K, class V, class Hash = Tmr_DefaultHash<K>>
class Tmr_ValHashMap {
 public:
  explicit Tmr_ValHashMap(size_t buckets = 64) : m_map(buckets) {}

  bool insert(const K& key, const V& value) {
    return m_map.emplace(key, value).second;
  }  // false: is there
  // Copies the value to `value` and returns true; leaves it alone when there is none.
  bool find(const K& key, V& value) const {
    const auto found = m_map.find(key);
    if (found == m_map.end()) return false;
    value = found->second;
    return true;
  }
  bool contains(const K& key) const { return m_map.count(key) > 0; }
  bool remove(const K& key) { return m_map.erase(key) > 0; }
  void clear() { m_map.clear(); }
  size_t entries() const { return m_map.size(); }
  size_t buckets() const { return m_map.bucket_count(); }

 private:
  std::unordered_map<K, V, Hash> m_map;
};
