// The properties of the process.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <string_view>
#include <unordered_map>

#include <ace/Thread_Mutex.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>

namespace cfg {

// A map from property names to texts that is read without a lock while one thread at a
// time writes it. What makes that safe: an entry is linked into its bucket when it is
// complete and never taken out, a text is never changed nor freed, and setting a property
// again exchanges one pointer. Each different text is kept once, so that properties which
// go to and fro between some texts do not gather memory.
class PropertiesWrapper {
 public:
  // The table of the process. It is never destroyed: threads may still read it while the
  // process ends.
  static PropertiesWrapper& of_process();

  // The text of a property, empty when it is not set. It stays valid.
  std::string_view find(std::string_view name) const;
  // Sets a property to a text, both not empty. The text that was replaced; empty when there
  // was none, or the same.
  std::string_view set(std::string_view name, std::string_view text);

 private:
  struct Entry {
    const std::string name;
    std::atomic<const std::string*> text;
    const Entry* const next;
  };

  static void told(void* table, ForkHandler::Phase phase);
  Entry* entry(std::string_view name) const;
  const std::string* kept_text(std::string_view text);

  std::array<std::atomic<Entry*>, 256> m_buckets{};                  // heads; written under m_lock
  std::unordered_map<std::string_view, const std::string*> m_texts;  // guarded by m_lock
  ACE_Thread_Mutex m_lock;
  ForkHandler m_handler{ForkHandler::VALUES, told, this};
};

}  // namespace cfg
