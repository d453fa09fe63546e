// Reads and changes that take place at the same time.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <thread/ForkHandler.h>

namespace cfg {

// What is read from a store while it is changed may be what it was before, and which of two changes
// came last is known to the store alone. So whoever is about to keep what it gets from there is
// listed here meanwhile, and a change that is done says so to all others whose key it concerns:
// they keep nothing.
//
// A change that belongs to an update is seen by other readers of the store only once that is over.
// Until then, what they read there of its keys is not kept.
class overlapping_changes {
 public:
  overlapping_changes() = default;

  // From before the store is asked. `key` outlives it.
  class Use {
   public:
    Use(overlapping_changes& all, std::string_view key) : Use(all, key, nullptr) {}
    // Adds the keys of other changes to `changed`, which outlives this; an empty one is everything.
    Use(overlapping_changes& all, std::string_view key, std::vector<std::string>* changed);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    // Keeps what was read, unless that was changed meanwhile.
    template <class Keep>
    void keep(const Keep& keep_it) {
      const MutexGuard guard(m_all.m_mutex);
      if (!m_is_overtaken) keep_it();
    }
    // Keeps of what was read what is not among the changed keys, which nobody adds to meanwhile.
    template <class Keep>
    void keep_rest(const Keep& keep_it) {
      const MutexGuard guard(m_all.m_mutex);
      keep_it();
    }
    // Says that the store was changed there, and brings up to date what is kept; told whether
    // another change took place at the same time.
    template <class Change>
    void changed(const Change& change) {
      const MutexGuard guard(m_all.m_mutex);
      m_all.note(m_key, this);
      change(m_is_overtaken);
    }

   private:
    friend class overlapping_changes;
    overlapping_changes& m_all;
    const std::string_view m_key;
    std::vector<std::string>* const m_changed;
    bool m_is_overtaken = false;  // guarded by the mutex
  };

  // Everything may have changed.
  template <class Change>
  void all_changed(const Change& change) {
    const MutexGuard guard(m_mutex);
    for (Use* use : m_uses) overtake(*use, "");
    change();
  }

  // This thread's changes belong together until the end. Whether it had begun.
  void begin_update();
  bool end_update();
  // The keys that this thread has changed since the update began, or since they were taken.
  std::vector<std::string> take_changed();
  bool has_updates() {  // of any thread
    const MutexGuard guard(m_mutex);
    return !m_updates.empty();
  }
  uint64_t begun_updates() {  // so far
    const MutexGuard guard(m_mutex);
    return m_begun_updates;
  }

 private:
  static void told(void* object, ForkHandler::Phase phase);
  static void overtake(Use& use, std::string_view by);
  void note(std::string_view key, const Use* by) THREADAPI_REQUIRES(m_mutex);
  void look_for_pending(Use& use) const THREADAPI_REQUIRES(m_mutex);

  Mutex m_mutex;
  std::vector<Use*> m_uses THREADAPI_GUARDED_BY(m_mutex);
  // Of the updates that are open, by their threads, what they changed; an empty key is everything.
  std::map<std::thread::id, std::vector<std::string>> m_updates THREADAPI_GUARDED_BY(m_mutex);
  uint64_t m_begun_updates THREADAPI_GUARDED_BY(m_mutex) = 0;
  ForkHandler m_handler{ForkHandler::REPOSITORIES, told, this};
};

}  // namespace cfg
