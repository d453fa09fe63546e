// What of the store belongs into the datagrid.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <datagrid/Grid_Feed.h>

#include "stores.h"

namespace service {

// The cache paths of the tree, read for the feeder. One thread; each read is of one state of the
// store.
class FedTree {
 public:
  // `is_over`: asked now and then whether to give up.
  FedTree(StoreRepository& store, std::function<bool()> is_over);
  FedTree(const FedTree&) = delete;
  FedTree& operator=(const FedTree&) = delete;
  ~FedTree() { m_store.SetGiveUp(nullptr); }

  // False when the store failed.
  bool read_position();
  // Which store it is, and what of it belongs into the grid.
  const std::string& id() const { return m_id; }
  int64_t last() const { return m_last; }  // number of the store's last change
  bool has_paths() const { return !m_tops.empty(); }
  // What was deleted since that number is known.
  bool knows_deletions_since(int64_t number) const { return number + 1 >= m_oldest_deletion; }

  using Take = std::function<bool(std::string_view path, std::string_view value)>;
  // All records; false when the store failed or `take` did. Sets last().
  bool read_all(const Take& take);
  // What has changed since the state's number, or was marked; the same.
  bool read_changes(const Grid_Feed::State& state, Grid_Feed::Changes& changes);

 private:
  bool in_one_state(const std::function<bool()>& read);
  bool read_below(const std::string& path, const int64_t* since, bool deleted, const Take& take);
  bool read_tree(const std::string& top, const Take& take);
  bool read_record(const std::string& path, const Take& take);
  bool read_marked(const Grid_Feed::State& state, Grid_Feed::Changes& changes);
  Take setting_in(Grid_Feed::Changes& changes) const;  // refuses what makes them too large
  bool is_fed(const std::string& path) const;

  StoreRepository& m_store;
  std::string m_id;
  std::vector<std::string> m_tops;
  int64_t m_last = 0;
  int64_t m_oldest_deletion = 0;
};

}  // namespace service
