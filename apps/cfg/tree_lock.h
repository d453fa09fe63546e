// One writer of a tree file at a time.
#pragma once

#include <string>
#include <utility>

namespace cli {

// Keeps other runs of the command from changing the file while this object lives. It is an
// advisory lock, on the file itself or, before there is one, on its folder; it goes with
// the process however that ends. Readers need none, since the file is replaced whole.
class TreeLock {
 public:
  // Waits for other writers, and says so after a moment. A Failure after `seconds`.
  TreeLock(const std::string& file, double seconds);
  ~TreeLock();
  TreeLock(TreeLock&& other) noexcept
      : m_file(std::move(other.m_file)), m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  TreeLock& operator=(TreeLock&&) = delete;

 private:
  bool open();
  void wait(double seconds);
  bool is_on_current_file() const;
  void close();

  std::string m_file;
  int m_descriptor = -1;
};

}  // namespace cli
