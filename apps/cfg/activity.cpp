#include "activity.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "output.h"

namespace cli {

Activity::Activity(std::string what) : m_what(std::move(what)) {
  if (isatty(STDERR_FILENO)) m_thread = std::thread([this] { show(); });
}

Activity::~Activity() {
  if (!m_thread.joinable()) return;
  {
    const std::lock_guard lock(m_mutex);
    m_has_ended = true;
  }
  m_end.notify_one();
  m_thread.join();
}

void Activity::show() {
  std::unique_lock lock(m_mutex);
  bool is_shown = false;
  for (int seconds = 1;; ++seconds) {
    if (m_end.wait_for(lock, std::chrono::seconds(1), [this] { return m_has_ended; })) break;
    std::fprintf(stderr, "\r\033[Kcfg: %s, %d s", printable(m_what).c_str(), seconds);
    is_shown = true;
  }
  if (is_shown) std::fputs("\r\033[K", stderr);
}

}  // namespace cli
