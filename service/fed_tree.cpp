#include "fed_tree.h"

#include <algorithm>
#include <cstdlib>

#include <thread/Mutex.h>

namespace service {

namespace {

constexpr char PATHS[] = "halvoria\\system\\applications\\cfg\\datagrid_cache\\cache_paths";
constexpr char RESETS[] = "halvoria\\system\\applications\\central_configuration\\reset_count";

int64_t number_of(const RWCString& text) { return std::strtoll(text.data(), nullptr, 10); }

bool is_at_or_below(std::string_view path, std::string_view top) {
  return path.substr(0, top.size()) == top &&
         (path.size() == top.size() || path[top.size()] == '\\');
}

// A path with that in it could be taken for one with a placeholder.
bool is_readable(const std::string& path) { return path.find('<') == path.npos; }

// The pieces between ";" as the store knows them, in order, without those below others.
std::vector<std::string> tops_of(StoreRepository& store, const std::string& paths) {
  std::vector<std::string> all, tops;
  for (size_t begin = 0; begin < paths.size();) {
    const size_t end = std::min(paths.find(';', begin), paths.size());
    if (end > begin) {
      const RWCString piece(paths.substr(begin, end - begin));
      all.push_back(store.change_string_with_properties(piece).str());
    }
    begin = end + 1;
  }
  std::sort(all.begin(), all.end());
  for (std::string& path : all) {
    const bool is_known = std::any_of(tops.begin(), tops.end(), [&](const std::string& top) {
      return is_at_or_below(path, top);
    });
    if (!is_known) tops.push_back(std::move(path));
  }
  return tops;
}

}  // namespace

FedTree::FedTree(StoreRepository& store, std::function<bool()> is_over) : m_store(store) {
  m_store.TakeFailure();
  m_store.SetGiveUp([is_over = std::move(is_over)] {
    return is_over() ? std::string("the service stops") : std::string();
  });
}

bool FedTree::in_one_state(const std::function<bool()>& read) {
  const MutexGuard one_query(*m_store.GetMutexForSVCFGStartQuery());
  const CFG_DBRepository::OneState state(m_store);
  if (!state) return false;
  m_last = number_of(m_store.GetMaxSeqNumber());
  return read() && m_store.TakeFailure().empty();
}

bool FedTree::read_position() {
  return in_one_state([this] {
    m_tops = tops_of(m_store, m_store.GetValue(RWCString(PATHS)).str());
    m_id = m_store.GetServerSyncID().str() + " " + m_store.GetValue(RWCString(RESETS)).str();
    for (const std::string& top : m_tops) m_id += ";" + top;
    m_oldest_deletion = number_of(m_store.GetMinSeqNumberOfDeletedEntry());
    return true;
  });
}

bool FedTree::is_fed(const std::string& path) const {
  return std::any_of(m_tops.begin(), m_tops.end(),
                     [&](const std::string& top) { return is_at_or_below(path, top); });
}

// The key, or the value; `take` is not called when there is neither.
bool FedTree::read_record(const std::string& path, const Take& take) {
  const RWCString at(path);
  if (m_store.IsSubTreeExist(at)) return take(path, {});
  const RWCString value = m_store.GetValue(at);
  return value.isNull() || take(path, value.view());
}

// With full paths.
bool FedTree::read_below(const std::string& path, const int64_t* since, bool deleted,
                         const Take& take) {
  struct Closing {
    ~Closing() { store.CloseTreeQuery(); }
    StoreRepository& store;
  };
  RWCString at(path);
  const RWCString number(since ? std::to_string(*since) : std::string());
  if (m_store.StartTreeQuery(at, false, since ? &number : nullptr, deleted) == -1) return false;
  const Closing closing{m_store};
  std::string full;
  bool is_taken = true;
  m_store.EachFromQuery([&](std::string_view name, std::string_view value) {
    full.assign(path).append("\\").append(name);
    return is_taken = take(full, value);
  });
  return is_taken && !m_store.IsQueryFailed();
}

bool FedTree::read_tree(const std::string& top, const Take& take) {
  return read_record(top, take) && read_below(top, nullptr, false, take);
}

bool FedTree::read_all(const Take& take) {
  return in_one_state([&] {
    return std::all_of(m_tops.begin(), m_tops.end(),
                       [&](const std::string& top) { return read_tree(top, take); });
  });
}

FedTree::Take FedTree::setting_in(Grid_Feed::Changes& changes) const {
  return [&](std::string_view path, std::string_view value) {
    changes.set(path, value, m_last);
    return !changes.is_too_large();
  };
}

bool FedTree::read_changes(const Grid_Feed::State& state, Grid_Feed::Changes& changes) {
  const Take set = setting_in(changes);
  const Take remove = [&](std::string_view path, std::string_view) {
    changes.remove(path);
    return !changes.is_too_large();
  };
  return in_one_state([&] {
    for (const std::string& top : m_tops) {
      changes.remove(top);
      if (!read_below(top, &state.fed, true, remove) || !read_record(top, set) ||
          !read_below(top, &state.fed, false, set)) {
        return changes.is_too_large();
      }
    }
    return read_marked(state, changes);
  });
}

bool FedTree::read_marked(const Grid_Feed::State& state, Grid_Feed::Changes& changes) {
  const Take set = setting_in(changes);
  for (const std::string& path : state.marked_trees) {
    if (!is_fed(path)) continue;
    changes.remove(path);
    changes.remove_below(path);
    if (!read_tree(path, set)) return changes.is_too_large();
  }
  for (const std::string& path : state.marked_values) {
    if (is_readable(path)) {
      changes.remove(path);
      if (is_fed(path) && !read_record(path, set)) return changes.is_too_large();
    } else {
      changes.hide(path);
    }
  }
  return true;
}

}  // namespace service
