// What is due when.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>

class Tmr_TimerInterace;

// The timers of a Tmr_TimerThread, by listener and name. It knows neither a clock nor a thread:
// who uses it says what time it is, and holds a lock.
//
// A timer takes 16 bytes, up to 32 while the table of all has room to grow. Beside that stands its
// name, once for all timers that a listener has under it.
class HALVORIA_API Tmr_Timers {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct Fired {
    Tmr_TimerInterace* listener = nullptr;
    RWCString name;
  };

  // Of one listener, name and second there is one timer: the one that was there stays.
  void Set(Tmr_TimerInterace* listener, std::string_view name, Time due);
  // All timers of that listener and name, or of that listener. Goes through all that are set.
  void Cancel(Tmr_TimerInterace* listener, std::string_view name);
  void CancelAll(Tmr_TimerInterace* listener);

  // The timer that is due first, which is none any more; false when none is due.
  bool Take(Time now, Fired& fired);

  bool empty() const { return m_timers.empty(); }
  size_t size() const { return m_timers.size(); }
  Time next() const { return m_timers.front().due; }  // not of none

 private:
  struct Name {
    Tmr_TimerInterace* listener;
    RWCString text;
    // Of the element of a set: what changes is no part of its key.
    mutable unsigned timers = 0;
    mutable Time last_due{};  // of the timer that was set last, while it is there
  };
  struct Key {
    Tmr_TimerInterace* listener;
    std::string_view text;
    Key(Tmr_TimerInterace* of, std::string_view name) : listener(of), text(name) {}
    Key(const Name& name) : listener(name.listener), text(name.text) {}
    bool operator==(const Key& other) const {
      return listener == other.listener && text == other.text;
    }
  };
  struct Hash {
    using is_transparent = void;
    size_t operator()(const Key& key) const {
      return std::hash<std::string_view>()(key.text) ^ std::hash<const void*>()(key.listener);
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const Key& a, const Key& b) const { return a == b; }
  };
  struct Timer {
    Time due;
    const Name* name;
    bool operator>(const Timer& other) const { return due > other.due; }
  };

  template <class Is>
  void remove(const Is& is_meant);

  std::vector<Timer> m_timers;  // a heap, what is due first in front
  std::unordered_set<Name, Hash, Equal> m_names;
};
