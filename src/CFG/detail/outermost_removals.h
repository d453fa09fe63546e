// Trees of removals that say which keys are gone.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace cfg {

// A tree of removals does not tell a key that was removed with all below it from one that lost
// children: both have children. While one of these lives, what its thread is told was removed is
// the outermost alone: the leaves of the tree are what is gone, with all below.
class outermost_removals {
 public:
  outermost_removals() { s_is_on = true; }
  ~outermost_removals() { s_is_on = false; }
  outermost_removals(const outermost_removals&) = delete;
  outermost_removals& operator=(const outermost_removals&) = delete;

  // Which records of a list they are; a key comes before what was below it.
  class Filter {
   public:
    bool takes(std::string_view path) {
      if (!m_is_on) return true;
      for (size_t cut = path.find('\\'); cut != path.npos; cut = path.find('\\', cut + 1)) {
        if (m_taken.contains(path.substr(0, cut))) return false;
      }
      m_taken.emplace(path);
      return true;
    }

   private:
    const bool m_is_on = s_is_on;
    std::set<std::string, std::less<>> m_taken;
  };

 private:
  static inline constinit thread_local bool s_is_on = false;
};

}  // namespace cfg
