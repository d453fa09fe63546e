// Services that did not answer in time.
#pragma once

#include <atomic>
#include <chrono>
#include <string_view>

// What the connections of the process know of a service together. For a second after it kept one
// of them waiting in vain it is not asked again: one thread that waits is enough. Any answer ends
// that, and there is no silence where others were answered meanwhile. Any thread.
class Conn_Silence {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Lives as long as the process.
  static Conn_Silence& Of(std::string_view address);

  // No answer came to what was sent then.
  void note(Time sent);
  void end();  // something came
  bool holds() const;

 private:
  std::atomic<Time> m_heard{Time()};
  std::atomic<Time> m_until{Time()};
};
