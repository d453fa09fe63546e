// What takes its time.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace cli {

// While it lives, and where standard error is a terminal, a line there tells what is being
// done and for how long, once it takes more than a second. The line is gone afterwards.
class Activity {
 public:
  explicit Activity(std::string what);
  ~Activity();
  Activity(const Activity&) = delete;
  Activity& operator=(const Activity&) = delete;

 private:
  void show();

  const std::string m_what;
  std::mutex m_mutex;
  std::condition_variable m_end;
  bool m_has_ended = false;  // guarded by m_mutex
  std::thread m_thread;      // last, since it uses the others
};

}  // namespace cli
