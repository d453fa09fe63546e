// What only the top node of a tree has; for the sources of Tree_Node alone.
#pragma once

#include <atomic>
#include <mutex>

#include <tree/Tree_Node.h>
#include <tree/Tree_PathIndex.h>

// Made when it is first needed: by the one thread that changes the tree, or by one of several
// readers.
struct Tree_Node::Top {
  RWCString virtual_parent_path;
  bool is_path_above_known = false;
  // Deep lookups that walked from key to key since there is no index.
  std::atomic<uint32_t> walks{0};
  std::mutex index_mutex;  // held by the reader that builds the index
  std::atomic<Tree_PathIndex*> index{nullptr};

  Top() = default;
  ~Top() { delete index.load(std::memory_order_relaxed); }
};

// Whoever follows parent links above the node that it holds keeps one of these meanwhile. A tree
// goes from its leaves up, and what outlives its parent is cut off with all lanes closed. So a
// thread that came through the link before finds everything above it still there, and nobody
// comes through it later.
//
// One lane a thread, or nearly so: readers do not wait for each other.
class Tree_WayUp {
 public:
  Tree_WayUp() : m_guard(lane()) {}

  // No thread is on any way up while one of these lives.
  class Closed {
   public:
    Closed();
    ~Closed();
    Closed(const Closed&) = delete;
    Closed& operator=(const Closed&) = delete;
  };

 private:
  static std::mutex& lane();
  const std::lock_guard<std::mutex> m_guard;
};
