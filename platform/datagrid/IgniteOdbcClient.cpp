#include <datagrid/IgniteOdbcClient.h>

#include <exception>
#include <optional>
#include <tuple>
#include <vector>

#include <datagrid/Grid_Open.h>
#include <datagrid/Grid_Records.h>
#include <logging/Logger.h>
#include <thread/ForkHandler.h>

namespace {

constexpr Log_Logger logger("platform/datagrid/IgniteOdbcClient", 507);

constexpr size_t MOST_KEPT = 8;  // connections; more are closed when they come back
constexpr size_t MOST_VALUE_BYTES = size_t{2} << 20;
constexpr size_t MOST_TREE_BYTES = size_t{32} << 20;
constexpr int MOST_TREE_ENTRIES = 50000;

bool fail(const std::string& why) { return logger.reject(false, "the datagrid failed: %s\n", why); }

// Which process of the server answers; empty where that is not told.
std::string run_of(Grid_Store& store) {
  constexpr std::string_view name = "\nrun_id:";
  Grid_Answer answer;
  if (!store.ask({"INFO", "server"}, MOST_VALUE_BYTES, answer)) return {};
  const size_t at = answer.text.find(name);
  if (answer.kind != Grid_Answer::TEXT || at == answer.text.npos) return {};
  const size_t begin = at + name.size();
  return answer.text.substr(begin, answer.text.find_first_of("\r\n", begin) - begin);
}

// Paths hold no NUL; what does is a field of the records that is none.
bool is_path(const RWCString& path) { return path.view().find('\0') == std::string_view::npos; }

}  // namespace

struct IgniteOdbcClient::Inside {
  using Store = std::unique_ptr<Grid_Store>;

  // One of the connections that nobody uses, or a new one. Null with the reason.
  Store take(std::string& reason) {
    {
      const MutexGuard guard(mutex);
      if (!free.empty()) {
        Store last = std::move(free.back());
        free.pop_back();
        return last;
      }
    }
    Store fresh = Grid_Open(place->address, reason);
    if (!fresh) return nullptr;
    if (run_of(*fresh) == run) return fresh;
    reason = fresh->is_open() ? "the grid has begun anew" : fresh->error();
    return nullptr;
  }
  // Those of an ancestor are not used, and closed without a word.
  void give_back(Store store, unsigned taken_in) {
    const MutexGuard guard(mutex);
    if (free.size() < MOST_KEPT && taken_in == ForkHandler::Generation()) {
      free.push_back(std::move(store));
    }
  }

  bool ask(const Grid_Store::Words& words, size_t most_bytes, Grid_Answer& answer) {
    if (!place) return fail("not connected");
    const unsigned generation = ForkHandler::Generation();
    std::string reason;
    Store store = take(reason);
    if (!store) return fail(reason);
    if (!store->ask(words, most_bytes, answer)) return fail(store->error());
    give_back(std::move(store), generation);
    return answer.kind != Grid_Answer::REFUSAL || fail(answer.text);
  }
  bool mark(const char* script, const RWCString& path) try {
    if (!is_path(path)) return true;
    constexpr size_t most_bytes = 4096;
    Grid_Answer answer;
    return ask({"EVAL", script, "6", keys->records, keys->order, keys->marked, keys->new_records,
                keys->new_order, keys->new_marked, path.view()},
               most_bytes, answer);
  } catch (const std::exception& failure) {
    return fail(failure.what());
  }

  static void told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<Inside*>(object);
    if (phase == ForkHandler::BEFORE) return self.mutex.lock();
    if (phase == ForkHandler::IN_CHILD) self.free.clear();
    self.mutex.unlock();
  }

  // Set by Connect.
  std::optional<Grid_Place> place;
  std::optional<Grid_Keys> keys;
  std::string run;

  Mutex mutex;
  std::vector<Store> free THREADAPI_GUARDED_BY(mutex);
  ForkHandler fork_handler{ForkHandler::CONNECTIONS, told, this};
};

IgniteOdbcClient::IgniteOdbcClient() : m_inside(std::make_unique<Inside>()) {}
IgniteOdbcClient::~IgniteOdbcClient() = default;

bool IgniteOdbcClient::Connect(std::string& connection) try {
  Grid_Place place;
  std::string reason;
  if (!place.read(connection, reason)) {
    return logger.reject(false, "the connection string of the datagrid: %s\n", reason);
  }
  Inside::Store store = Grid_Open(place.address, reason);
  if (!store) return logger.reject(false, "the datagrid can not be reached: %s\n", reason);
  m_inside->run = run_of(*store);
  if (!store->is_open()) {
    return logger.reject(false, "the datagrid can not be reached: %s\n", store->error());
  }
  if (const std::string peer = store->peer(); !peer.empty()) place.address.host = peer;
  m_inside->keys.emplace(place.grid);
  m_inside->place = std::move(place);
  m_inside->give_back(std::move(store), ForkHandler::Generation());
  return true;
} catch (const std::exception& failure) {
  return logger.reject(false, "the datagrid can not be reached: %s\n", failure.what());
}

std::shared_ptr<CFG_CacheData> IgniteOdbcClient::GetValue(const RWCString& path, bool& ok) try {
  ok = true;
  if (!is_path(path)) return nullptr;
  Grid_Answer answer;
  ok = m_inside->keys ? m_inside->ask({"HMGET", m_inside->keys->records, path.view(), GRID_MARKS},
                                      MOST_VALUE_BYTES, answer)
                      : fail("not connected");
  if (!ok) return nullptr;
  if (answer.kind != Grid_Answer::TEXTS || answer.texts.size() != 2) {
    ok = fail("it answers something else than a value");
    return nullptr;
  }
  const auto& [text, marks] = std::tie(answer.texts[0], answer.texts[1]);
  if (!text || !marks || Grid_IsMarked(*marks, path.view())) return nullptr;
  Grid_Record record;
  ok = record.read(*text) || fail("it has something else than a record");
  if (!ok || record.kind == Grid_Record::UNKNOWN) return nullptr;
  return std::make_shared<CFG_CacheData>(
      CFG_CacheData{true, record.kind == Grid_Record::KEY, RWCString(record.value)});
} catch (const std::exception& failure) {
  ok = fail(failure.what());
  return nullptr;
}

namespace {

// What stands behind the 'k' of a subtree's answer. False when that is something else.
bool read_tree(std::string_view packed, const RWCString& top,
               std::list<std::pair<RWCString, RWCString>>& values) {
  std::string_view name, text;
  Grid_Record record;
  while (!packed.empty()) {
    if (!Grid_TakeText(packed, name) || !Grid_TakeText(packed, text)) return false;
    if (name.empty() || !record.read(text) || record.kind == Grid_Record::UNKNOWN) return false;
    values.emplace_back(top + RWCString("\\") + RWCString(name), RWCString(record.value));
  }
  return true;
}

}  // namespace

std::shared_ptr<CFG_CacheData> IgniteOdbcClient::GetSubTree(
    const RWCString& path, std::list<std::pair<RWCString, RWCString>>& values, bool& ok) try {
  values.clear();
  ok = true;
  if (!is_path(path)) return nullptr;
  static const std::string most_entries = std::to_string(MOST_TREE_ENTRIES);
  static const std::string most_bytes = std::to_string(MOST_TREE_BYTES / 2);
  Grid_Answer answer;
  ok = m_inside->keys
           ? m_inside->ask({"EVAL", grid_scripts::READ_TREE, "2", m_inside->keys->records,
                            m_inside->keys->order, path.view(), most_entries, most_bytes},
                           MOST_TREE_BYTES, answer)
           : fail("not connected");
  if (!ok || answer.kind == Grid_Answer::NOTHING) return nullptr;
  const std::string_view tree = answer.text;
  if (answer.kind == Grid_Answer::TEXT && tree == "v") {
    return std::make_shared<CFG_CacheData>(CFG_CacheData{true, false, RWCString()});
  }
  ok = answer.kind == Grid_Answer::TEXT && !tree.empty() && tree.front() == 'k' &&
       read_tree(tree.substr(1), path, values);
  if (ok) return std::make_shared<CFG_CacheData>(CFG_CacheData{true, true, RWCString()});
  values.clear();
  fail("it answers something else than a subtree");
  return nullptr;
} catch (const std::exception& failure) {
  values.clear();
  ok = fail(failure.what());
  return nullptr;
}

bool IgniteOdbcClient::SetValue(const RWCString& path, const RWCString&) {
  return m_inside->mark(grid_scripts::MARK_VALUE, path);
}
bool IgniteOdbcClient::DeleteValue(const RWCString& path) {
  return m_inside->mark(grid_scripts::MARK_VALUE, path);
}
bool IgniteOdbcClient::UpdateSubTree(const RWCString& path) {
  return m_inside->mark(grid_scripts::MARK_TREE, path);
}
