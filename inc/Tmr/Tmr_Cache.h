// Bounded maps that forget what was used least recently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>
#include <utility/Tmr_TimerThread.h>

// A cache of values by key. Values are copied in and out. Any thread.
template <class K, class V>
class Tmr_Cache {
 public:
  // True with a copy of the value in `out`, which a miss leaves alone.
  virtual bool get_value(const K& key, V& out) = 0;
  virtual void set_value(const K& key, const V& value) = 0;
  virtual void remove_from_cache(const K& key) = 0;
  virtual bool is_in_cache(const K& key) = 0;
  virtual void clear_cache() = 0;
  virtual void print_cache() = 0;  // the keys, to the log
  virtual ~Tmr_Cache() = default;
};

// What became of a cache since it was made.
struct Tmr_CacheCounts {
  uint64_t hits = 0;
  uint64_t misses = 0;
  uint64_t evictions = 0;
  uint64_t expiries = 0;

  bool operator==(const Tmr_CacheCounts& other) const {
    return hits == other.hits && misses == other.misses && evictions == other.evictions &&
           expiries == other.expiries;
  }
  bool operator!=(const Tmr_CacheCounts& other) const { return !(*this == other); }
  Tmr_CacheCounts& operator+=(const Tmr_CacheCounts& other) {
    hits += other.hits;
    misses += other.misses;
    evictions += other.evictions;
    expiries += other.expiries;
    return *this;
  }
};

// The lines that caches write to the log.
struct HALVORIA_API Tmr_CacheLog {
  static void full();
  static void removed(std::string_view key);
  static void expired(std::string_view key);
  static void listed(const std::string& keys);
};

// A cache of at most `capacity` entries: one too many, and the entry goes that was set or read
// least recently. A key goes `timeout` seconds after each time that it was set, whatever was read
// or set meanwhile; with a timeout of 0 or less no key does.
//
// Any thread may call any operation. Values that go are destroyed by the caller of the operation
// that dropped them, when it holds no lock any more. In a child of a fork keys go as in its parent.
// Nothing throws but what keys, values and memory do; then the cache is as before. A class that
// derives from this and overrides OnTimerExpired calls Tmr_TimerThread::ForgetListener in its
// destructor.
//
// Keys are texts, or whatever is made from a std::string, hashed by std::hash and converted to a
// std::string_view. Those of a std::string are also found by views.
template <class K, class V>
class Tmr_Cache_LRU : public Tmr_Cache<K, V>, public Tmr_TimerInterace {
 public:
  using Entry = std::pair<const K, V>;
  using Entries = std::list<Entry>;
  using KeyView = std::conditional_t<std::is_same_v<K, std::string>, std::string_view, const K&>;

  Tmr_Cache_LRU(int32_t capacity, int32_t timeout) : m_capacity(capacity), m_timeout(timeout) {}
  Tmr_Cache_LRU(const Tmr_Cache_LRU&) = delete;
  Tmr_Cache_LRU& operator=(const Tmr_Cache_LRU&) = delete;
  ~Tmr_Cache_LRU() override { Tmr_TimerThread::GetInstance().ForgetListener(this); }

  bool get_value(const K& key, V& out) override { return find_value(key, out); }
  void set_value(const K& key, const V& value) override;
  void remove_from_cache(const K& key) override { take_from_cache(key); }
  bool is_in_cache(const K& key) override { return has(key); }
  void clear_cache() override { take_all(); }
  void print_cache() override;
  void OnTimerExpired(RWCString& name) override;

  // --- the same without a key that is made for it ---------------------------------------------

  bool find_value(KeyView key, V& out);
  bool has(KeyView key) {
    const Place place(key);
    const Turn turn(*this);
    return m_index.find(place) != m_index.end();
  }

  // --- several entries at a time, none of which changes meanwhile -----------------------------

  // As get_value of the most recently used key for which `is_meant`, which is copied to `key`.
  template <class Is>
  bool find_first(const Is& is_meant, K& key, V& out);
  // Removes the key, those for which `is_meant`, or all. What it gives back holds the values, for
  // the caller to let go of without a lock.
  Entries take_from_cache(const K& key);
  template <class Is>
  Entries take_if(const Is& is_meant);
  Entries take_all() {
    Entries taken;
    const Turn turn(*this);
    m_index.clear();
    taken.swap(m_entries);
    return taken;
  }
  // From the most recently used key on.
  template <class Visit>
  void each_key(const Visit& visit) {
    const Turn turn(*this);
    for (const Entry& entry : m_entries) visit(entry.first);
  }

  int32_t capacity() const { return m_capacity; }
  int32_t timeout() const { return m_timeout; }
  size_t size() {
    const Turn turn(*this);
    return m_index.size();
  }
  Tmr_CacheCounts counts() {
    const Turn turn(*this);
    return m_counts;
  }

 private:
  using Position = typename Entries::iterator;

  // A key of an entry, with what it hashes to: that is not worked out with the lock held.
  struct Place {
    using Kept = std::conditional_t<std::is_reference_v<KeyView>, std::reference_wrapper<const K>,
                                    std::string_view>;
    explicit Place(KeyView of) : key(of), hash(std::hash<std::decay_t<KeyView>>()(of)) {}
    Kept key;
    size_t hash;
  };
  struct PlaceHash {
    size_t operator()(const Place& place) const noexcept { return place.hash; }
  };
  struct PlaceEqual {
    bool operator()(const Place& a, const Place& b) const {
      return a.hash == b.hash && KeyView(a.key) == KeyView(b.key);
    }
  };

  // Holds the lock. Who finds it taken tries again for a little while before it goes to sleep: what
  // is done with it takes less than that.
  class THREADAPI_SCOPED_CAPABILITY Turn {
   public:
    explicit Turn(Tmr_Cache_LRU& cache) THREADAPI_ACQUIRE(cache.m_lock) THREADAPI_UNCHECKED
        : m_lock(cache.m_lock) {
      constexpr int kTries = 64;
      for (int i = 0; i < kTries; ++i) {
        if (m_lock.try_lock()) return;
        pause();
      }
      m_lock.lock();
    }
    ~Turn() THREADAPI_RELEASE() THREADAPI_UNCHECKED { m_lock.unlock(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    static void pause() {
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#endif
    }
    Mutex& m_lock;
  };

  // A fork waits for the lock. In the child nobody has the keys expire until somebody asks.
  static void told(void* cache, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<Tmr_Cache_LRU*>(cache);
    if (phase == ForkHandler::BEFORE) return self.m_lock.lock();
    if (phase == ForkHandler::IN_CHILD) self.m_is_in_child = self.m_timeout > 0;
    self.m_lock.unlock();
  }
  void resume_timers() {
    m_is_in_child = false;
    Tmr_TimerThread::GetInstance().Resume();
  }
  void to_front(Position entry) { m_entries.splice(m_entries.begin(), m_entries, entry); }
  bool copy_value(const Place& place, V& out);
  void link(Entries& fresh, Entries& dropped);
  Entries take(KeyView key, bool is_expired);

  const int32_t m_capacity;
  Entries m_entries;  // guarded by m_lock, as what follows; the most recently used in front
  std::unordered_map<Place, Position, PlaceHash, PlaceEqual> m_index;  // keys are those in there
  Mutex m_lock;  // of one cache at a time; timers are set with it held
  const int32_t m_timeout;
  bool m_is_in_child = false;  // and its timers may not go off yet
  Tmr_CacheCounts m_counts;
  ForkHandler m_handler{ForkHandler::VALUES, told, this};
};

// What `out` held goes without the lock. A text is copied into the room that it has already.
template <class K, class V>
bool Tmr_Cache_LRU<K, V>::find_value(KeyView key, V& out) {
  const Place place(key);
  if constexpr (std::is_same_v<V, std::string>) {
    return copy_value(place, out);
  } else {
    V copy{};
    if (!copy_value(place, copy)) return false;
    out = std::move(copy);
    return true;
  }
}

template <class K, class V>
bool Tmr_Cache_LRU<K, V>::copy_value(const Place& place, V& out) {
  const Turn turn(*this);
  if (m_is_in_child) resume_timers();
  const auto found = m_index.find(place);
  if (found == m_index.end()) {
    ++m_counts.misses;
    return false;
  }
  ++m_counts.hits;
  to_front(found->second);
  out = found->second->second;
  return true;
}

template <class K, class V>
template <class Is>
bool Tmr_Cache_LRU<K, V>::find_first(const Is& is_meant, K& key, V& out) {
  V copy{};
  const Turn turn(*this);
  if (m_is_in_child) resume_timers();
  for (Position entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
    if (!is_meant(entry->first)) continue;
    ++m_counts.hits;
    copy = entry->second;
    key = entry->first;
    to_front(entry);
    std::swap(out, copy);
    return true;
  }
  return false;
}

template <class K, class V>
void Tmr_Cache_LRU<K, V>::set_value(const K& key, const V& value) {
  Entries fresh, dropped;
  fresh.emplace_front(key, value);
  {
    const Turn turn(*this);
    if (m_timeout > 0) {  // it cannot go off before the key is there
      RWCString name{std::string_view(key)};
      Tmr_TimerThread::GetInstance().SetDisposableTimer(name, m_timeout, this);
    }
    link(fresh, dropped);
  }
  if (!dropped.empty()) Tmr_CacheLog::full();
}

// Afterwards `fresh` may hold the value that was replaced.
template <class K, class V>
void Tmr_Cache_LRU<K, V>::link(Entries& fresh, Entries& dropped) {
  const Position entry = fresh.begin();
  const Place place(entry->first);
  const auto found = m_index.find(place);
  if (found != m_index.end()) {
    to_front(found->second);
    std::swap(found->second->second, entry->second);
    return;
  }
  const bool is_full = m_entries.size() >= static_cast<size_t>(m_capacity < 0 ? 0 : m_capacity);
  if (!is_full) {
    m_index.emplace(place, entry);
    m_entries.splice(m_entries.begin(), fresh);
    return;
  }
  ++m_counts.evictions;
  if (m_entries.empty()) return dropped.swap(fresh);  // there is room for none
  const Position last = std::prev(m_entries.end());
  // The last one's place in the index becomes that of the new one.
  auto reused = m_index.extract(Place(last->first));
  dropped.splice(dropped.begin(), m_entries, last);
  m_entries.splice(m_entries.begin(), fresh);
  reused.key() = place;
  reused.mapped() = entry;
  m_index.insert(std::move(reused));
}

template <class K, class V>
typename Tmr_Cache_LRU<K, V>::Entries Tmr_Cache_LRU<K, V>::take(KeyView key, bool is_expired) {
  const Place place(key);
  Entries taken;
  const Turn turn(*this);
  const auto found = m_index.find(place);
  if (found == m_index.end()) return taken;
  taken.splice(taken.begin(), m_entries, found->second);
  m_index.erase(found);
  m_counts.expiries += is_expired;
  return taken;
}

template <class K, class V>
typename Tmr_Cache_LRU<K, V>::Entries Tmr_Cache_LRU<K, V>::take_from_cache(const K& key) {
  Entries taken = take(key, false);
  if (!taken.empty()) Tmr_CacheLog::removed(key);
  return taken;
}

template <class K, class V>
template <class Is>
typename Tmr_Cache_LRU<K, V>::Entries Tmr_Cache_LRU<K, V>::take_if(const Is& is_meant) {
  Entries taken;
  {
    const Turn turn(*this);
    for (Position next = m_entries.begin(); next != m_entries.end();) {
      const Position entry = next++;
      if (!is_meant(entry->first)) continue;
      m_index.erase(Place(entry->first));
      taken.splice(taken.end(), m_entries, entry);
    }
  }
  for (const Entry& entry : taken) Tmr_CacheLog::removed(entry.first);
  return taken;
}

template <class K, class V>
void Tmr_Cache_LRU<K, V>::print_cache() {
  std::string keys;
  each_key([&keys](std::string_view key) { keys.append(key) += '\n'; });
  Tmr_CacheLog::listed(keys);
}

template <class K, class V>
void Tmr_Cache_LRU<K, V>::OnTimerExpired(RWCString& name) {
  std::conditional_t<std::is_same_v<K, std::string>, const K&, const K> key(name.str());
  Tmr_CacheLog::expired(key);
  if (!take(key, true).empty()) Tmr_CacheLog::removed(key);
}
