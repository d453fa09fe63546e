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
