// What ends with the thread that began it.
#pragma once

#include <memory>

namespace cfg {

// Something that a thread may leave open. Made by std::make_shared: a thread that ends may hold it
// a moment longer than its owner does.
class thread_bound : public std::enable_shared_from_this<thread_bound> {
 public:
  thread_bound() = default;
  thread_bound(const thread_bound&) = delete;
  thread_bound& operator=(const thread_bound&) = delete;
  virtual ~thread_bound() = default;

  // Told at the end of each thread that watched. Whether that thread had something open, which is
  // undone now.
  virtual bool end_with_thread() = 0;

 protected:
  // From now on this thread's end is told. False when it is ending.
  bool watch_thread();
};

}  // namespace cfg
