#include <CFG/cache/in_process_cache.h>

#include <algorithm>
#include <optional>

#include <CFG/cache/cache_keys.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/paths.h>
#include <events/KestralEvent.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_InProcessCacheRepository", 502);

constexpr int kEventOfCounts = 266;
constexpr int kEventEvery = 60;  // seconds

bool is_on(int capacity) { return capacity >= 1; }

// A store may answer a read of a subtree there with a key above it, for which a change elsewhere
// than below the path counts: that is not kept.
bool is_pattern(std::string_view path) { return path.find('%') != path.npos; }

}  // namespace

std::shared_ptr<in_process_cache> make_in_process_cache() {
  return std::make_shared<in_process_cache>();
}

// What one Connect made. It stays until the repository ends: a read may still be at it.
struct in_process_cache::Caches {
  explicit Caches(const CFG_InProcessCacheConfigurations& sizes)
      : values(sizes.value_cache_size, sizes.value_cache_timeout),
        sub_trees(sizes.sub_tree_cache_size, sizes.sub_tree_cache_timeout),
        has_values(is_on(sizes.value_cache_size)),
        has_sub_trees(is_on(sizes.sub_tree_cache_size)) {}

  Values values;
  SubTrees sub_trees;
  const bool has_values, has_sub_trees;
  int largest = 1'000'000;     // entries of a subtree that is kept
  bool keeps_missing = false;  // likewise of what does not exist
  CFG_CacheBlackList black_list;
  std::unique_ptr<Reporter> reporter;
};

// Tells now and then what became of the caches.
class in_process_cache::Reporter : public Tmr_TimerInterace {
 public:
  Reporter(Caches& caches, RWCString process) : m_caches(caches), m_name(std::move(process)) {
    set_timer();
  }
  ~Reporter() override { Tmr_TimerThread::GetInstance().ForgetListener(this); }

  void OnTimerExpired(RWCString&) override try {
    set_timer();
    Tmr_CacheCounts counts = m_caches.values.counts();
    counts += m_caches.sub_trees.counts();
    if (counts == m_told) return;
    m_told = counts;
    const std::string text = "hits " + std::to_string(counts.hits) + " misses " +
                             std::to_string(counts.misses) + " evictions " +
                             std::to_string(counts.evictions) + " expiries " +
                             std::to_string(counts.expiries);
    const size_t entries = m_caches.values.size() + m_caches.sub_trees.size();
    KestralEvent::CFGPerformance(kEventOfCounts, m_name, "Cache", text, 0, false,
                                 static_cast<int>(entries))
        .Send();
  } catch (const std::bad_alloc&) {
    // The next one tells it.
  }

 private:
  void set_timer() { Tmr_TimerThread::GetInstance().SetDisposableTimer(m_name, kEventEvery, this); }
  Caches& m_caches;
  RWCString m_name;
  Tmr_CacheCounts m_told;
};

in_process_cache::~in_process_cache() = default;

// --- what there is -------------------------------------------------------------------------------

void in_process_cache::create(const CFG_InProcessCacheConfigurations& sizes) {
  m_made.push_back(std::make_unique<Caches>(sizes));
  m_created = m_made.back().get();
  if (is_on(sizes.value_cache_size)) {
    logger.info("value cache is enabled with max capacity = <%d> , timeout = <%d> seconds",
                sizes.value_cache_size, sizes.value_cache_timeout);
  } else {
    logger.info("value cache is disabled");
  }
  if (!is_on(sizes.sub_tree_cache_size)) return logger.info("subtree cache is disabled");
  logger.info(
      "subtree cache is enabled with max capacity = <%d> , timeout = <%d> seconds, max subtree size = <%d>",
      sizes.sub_tree_cache_size, sizes.sub_tree_cache_timeout, sizes.largest_sub_tree);
  m_created.load()->largest = sizes.largest_sub_tree;
}

void in_process_cache::preload(std::string_view paths, const ReadSubTree& read) {
  for (const std::string_view path : list_entries(paths)) {
    if (sub_tree(RWCString(path), read)) {
      logger.info("subtree <%s> was loaded to in process cache", path);
    }
  }
}

void in_process_cache::enable(const CFG_InProcessCacheConfigurations& sizes,
                              CFG_SubTree& configuration, const RWCString& reported_as) {
  Caches& made = *m_created;
  made.keeps_missing = sizes.keeps_what_does_not_exist;
  if (!made.keeps_missing) logger.info("negative cache is disable");
  made.black_list = CFG_CacheBlackList(configuration);
  if (!reported_as.isNull()) made.reporter = std::make_unique<Reporter>(made, reported_as);
  m_enabled.store(&made, std::memory_order_release);
}

void in_process_cache::disable() {
  m_enabled = nullptr;
  if (Caches* const made = m_created.exchange(nullptr)) {
    made->values.clear_cache();
    made->sub_trees.clear_cache();
    made->reporter.reset();
  }
}

bool in_process_cache::is_listed(std::string_view key) const {
  const Caches* const on = m_enabled;
  return on && on->black_list.IsInBlackList(key);
}

bool in_process_cache::keeps_sub_trees() const {
  const Caches* const on = m_enabled;
  return on && on->has_sub_trees;
}

bool in_process_cache::has_value(const RWCString& path) {
  Caches* const on = m_enabled;
  return on && on->values.has(path.view());
}

bool in_process_cache::has_sub_tree(const RWCString& path) {
  Caches* const on = m_enabled;
  return on && on->sub_trees.has(path.view());
}

Tmr_CacheCounts in_process_cache::value_counts() const {
  Caches* const on = m_enabled;
  return on ? on->values.counts() : Tmr_CacheCounts();
}

Tmr_CacheCounts in_process_cache::sub_tree_counts() const {
  Caches* const on = m_enabled;
  return on ? on->sub_trees.counts() : Tmr_CacheCounts();
}

void in_process_cache::clear() {
  Caches* const on = m_enabled;
  if (!on) return;
  on->sub_trees.clear_cache();
  on->values.clear_cache();
}

// --- calls that are for the store ----------------------------------------------------------------

constinit thread_local in_process_cache::AtStore* in_process_cache::AtStore::s_innermost = nullptr;

in_process_cache::AtStore::AtStore(in_process_cache& cache, bool is_write)
    : m_cache(cache), m_is_write(is_write), m_outer(s_innermost) {
  m_cache.m_store_calls.fetch_add(1, std::memory_order_relaxed);
  s_innermost = this;
}

in_process_cache::AtStore::~AtStore() {
  s_innermost = m_outer;
  m_cache.m_store_calls.fetch_sub(1, std::memory_order_relaxed);
}

bool in_process_cache::is_at_store() const {
  for (const AtStore* call = AtStore::s_innermost; call; call = call->m_outer) {
    if (&call->m_cache == this) return true;
  }
  return false;
}

bool in_process_cache::is_within_write() const {
  for (const AtStore* call = AtStore::s_innermost; call; call = call->m_outer) {
    if (&call->m_cache == this && call->m_is_write) return true;
  }
  return false;
}

// --- values --------------------------------------------------------------------------------------

RWCString in_process_cache::value(const RWCString& path, const ReadValue& read) {
  Caches* const on = m_enabled.load(std::memory_order_acquire);
  if (!on) return read(path);
  Caches& caches = *on;
  const actual_path key(path.view());
  if (caches.black_list.IsInBlackList(key)) {
    logger.detail("path <%s> is in black list,will not search for value in cache", key.view());
    const stored_paths as_stored;
    return read(key.copy());
  }
  std::string text;
  if (find_value(caches, key, text)) {
    logger.trace("End, path = %s, value = %s", key.view(), text);
    return RWCString(std::move(text));
  }
  return value_of_store(caches, key, read);
}

// Not in line with a hit, which needs none of this.
RWCString in_process_cache::value_of_store(Caches& caches, std::string_view key,
                                           const ReadValue& read) {
  logger.detail("path <%s> is not in InProcess cache,checking in CFG", key);
  overlapping_changes::Use use(m_changes, key);
  const stored_paths as_stored;
  const RWCString found = read(RWCString(key));
  if (caches.has_values && (!found.isNull() || caches.keeps_missing)) {
    if (found.isNull()) {
      logger.detail("path <%s> is not exist in CFG, update value cache (negative cache)", key);
    } else {
      logger.detail("path <%s> found in CFG", key);
    }
    use.keep([&] { caches.values.set_value(std::string(key), found.str()); });
  }
  logger.trace("End, path = %s, value = %s", key, found);
  return found;
}

bool in_process_cache::kept_value(std::string_view key, std::string& value) {
  Caches* const on = m_enabled;
  return on && find_value(*on, key, value);
}

bool in_process_cache::find_value(Caches& caches, std::string_view key, std::string& value) {
  logger.trace("search path <%s> in InProcess cache", key);
  if (caches.has_values) {
    if (caches.values.find_value(key, value)) {
      logger.detail("path <%s> found in value cache", key);
      return true;
    }
    logger.detail("path <%s> was not found in value cache,checking in subtree cache", key);
  }
  return caches.has_sub_trees && find_below_ancestor(caches, key, value);
}

bool in_process_cache::find_below_ancestor(Caches& caches, std::string_view key,
                                           std::string& value) {
  overlapping_changes::Use use(m_changes, key);
  SubTree ancestor;
  std::string relative;
  if (!find_ancestor(caches, key, ancestor, relative)) return false;
  if (caches.keeps_missing) {
    logger.detail(
        "path <%s> is not exist in CFG, add this non exist value to cache (negative cache)", key);
  }
  if (!ancestor && !caches.keeps_missing) return false;
  const stored_paths as_stored;
  value = ancestor ? ancestor->GetValue(RWCString(std::move(relative))).str() : std::string();
  logger.detail("path <%s> found in subtree cache", key);
  if (caches.has_values) use.keep([&] { caches.values.set_value(std::string(key), value); });
  return true;
}

// The one that was used last of those that the key is below, which need not be the nearest.
bool in_process_cache::find_ancestor(Caches& caches, std::string_view key, SubTree& found,
                                     std::string& relative) {
  const auto is_above = [key](std::string_view above) {
    return !above.empty() && key.size() > above.size() && key[above.size()] == '\\' &&
           key.starts_with(above);
  };
  std::string above;
  const MutexGuard walk(m_walk_lock);
  if (!caches.sub_trees.find_first(is_above, above, found)) return false;
  relative = key.substr(above.size() + 1);
  return !relative.empty();
}

// --- subtrees ------------------------------------------------------------------------------------

in_process_cache::SubTree in_process_cache::sub_tree(const RWCString& path,
                                                     const ReadSubTree& read) {
  Caches* const caches = m_created;
  if (!caches || !caches->has_sub_trees) {
    return logger.reject(SubTree(),
                         "requested subtree from cached, but no cache for subtree was created");
  }
  const actual_string key(path);
  SubTree found;
  if (is_pattern(key.text().view())) {
    const stored_paths as_stored;
    RWCString pattern = key.text();
    found.reset(read(pattern));
    return found;
  }
  if (caches->sub_trees.find_value(key.text().view(), found)) {
    logger.detail("path <%s> found in subtree cache", key.text());
    return found;
  }
  if (find_below_ancestor(*caches, key.text().view(), found)) return found;
  logger.detail("path <%s> is not in InProcess cache,checking in CFG", key.text());
  overlapping_changes::Use use(m_changes, key.text().view());
  const stored_paths as_stored;
  RWCString copy = key.text();
  found.reset(read(copy));
  if (found) {
    logger.detail("path <%s> found in CFG, update subtree cache", key.text());
  } else if (caches->keeps_missing) {
    logger.detail("path <%s> is not exist in CFG, update subtree cache (negative cache)",
                  key.text());
  } else {
    return found;
  }
  keep_sub_tree(*caches, use, key, found);
  return found;
}

void in_process_cache::keep_sub_tree(Caches& caches, overlapping_changes::Use& use,
                                     const RWCString& key, const SubTree& found) {
  const int size = found ? found->GetSubTreeEntriesCount("") : 0;
  if (size > caches.largest) {
    return logger.warning(
        "path <%s> with size = <%d> is too heavy to be stored in in-process cache", key, size);
  }
  Dropped dropped;
  use.keep([&] {
    remove_descendants(caches, key.view(), dropped);
    caches.sub_trees.set_value(key.str(), found);
  });
}

bool in_process_cache::kept_below_ancestor(std::string_view key, SubTree& found) {
  Caches* const on = m_enabled;
  return on && !is_pattern(key) && find_below_ancestor(*on, key, found);
}

bool in_process_cache::find_below_ancestor(Caches& caches, std::string_view key, SubTree& found) {
  SubTree ancestor;
  std::string relative;
  if (!find_ancestor(caches, key, ancestor, relative)) return false;
  if (caches.keeps_missing) {
    logger.detail(
        "subtree <%s> is not exist in CFG, add this non exist value to cache (negative cache)",
        key);
  }
  const stored_paths as_stored;
  RWCString below(std::move(relative));
  found.reset(ancestor ? ancestor->GetSubTree(below) : nullptr);
  logger.detail("path <%s> found in subtree cache", key);
  return true;
}

// --- changes -------------------------------------------------------------------------------------

// `update` is told whether another change was made at the same time; what it drops goes without a
// lock. What the store refused may have been done there even so, as when its answer was lost: then
// what is kept stays, but nothing is added that was read meanwhile.
template <class Update>
int in_process_cache::change(std::string_view key, const Ask& write, const Update& update) {
  const AtStore at_store(*this, true);
  overlapping_changes::Use use(m_changes, key);
  const int done = write();
  Dropped dropped;
  use.changed([&](bool is_overtaken) { update(done, is_overtaken, dropped); });
  return done;
}

int in_process_cache::set_value(const RWCString& path, const RWCString& value, const Write& write) {
  Caches* const on = m_enabled;
  if (!on) return write(path);
  const actual_string key(path);
  const stored_paths as_stored;
  const auto update = [&](int done, bool is_overtaken, Dropped& dropped) {
    if (!done || on->black_list.IsInBlackList(key.text().view())) return;
    if (on->has_sub_trees) remove_ancestors(*on, key.text().view(), dropped);
    if (!on->has_values) return;
    if (is_overtaken) {
      on->values.remove_from_cache(key.text().str());  // who was the last is known to the store
    } else {
      on->values.set_value(key.text().str(), value.str());
    }
  };
  return change(
      key.text().view(), [&] { return write(key); }, update);
}

int in_process_cache::delete_value(const RWCString& path, const Write& write) {
  Caches* const on = m_enabled;
  if (!on) return write(path);
  const actual_string key(path);
  const stored_paths as_stored;
  const auto update = [&](int done, bool, Dropped& dropped) {
    if (!done || on->black_list.IsInBlackList(key.text().view())) return;
    if (on->has_sub_trees) remove_ancestors(*on, key.text().view(), dropped);
    if (on->has_values) on->values.remove_from_cache(key.text().str());
  };
  return change(
      key.text().view(), [&] { return write(key); }, update);
}

int in_process_cache::write_sub_tree(const RWCString& path, const Write& write) {
  Caches* const on = m_enabled;
  if (!on) return write(path);
  const actual_string key(path);
  const auto update = [&](int done, bool, Dropped& dropped) {
    if (!done || !on->has_sub_trees || on->black_list.IsInBlackList(key.text().view())) return;
    clean(*on, key.text().view(), dropped);
  };
  const auto passing = [&] { return write(path); };
  if (!on->has_sub_trees) return change(key.text().view(), passing, update);
  const stored_paths as_stored;
  return change(
      key.text().view(), [&] { return write(key); }, update);
}

int in_process_cache::write_below(std::string_view key, const Ask& write) {
  Caches* const on = m_enabled;
  if (!on) return write();
  const auto update = [&](int, bool, Dropped& dropped) {
    clean(*on, key, dropped);
    on->values.remove_from_cache(std::string(key));
  };
  return change(key, write, update);
}

int in_process_cache::forgetting(int done) {
  Caches* const on = m_enabled;
  if (!on) return done;
  Dropped dropped;
  m_changes.all_changed([&] { drop_all(*on, dropped); });
  return done;
}

void in_process_cache::begin_update() {
  if (m_enabled && watch_thread()) m_changes.begin_update();
}

// The store is told before, as it began the update before.
bool in_process_cache::end_with_thread() {
  if (m_changes.end_update()) forgetting(0);
  return false;
}

// --- removal -------------------------------------------------------------------------------------

void in_process_cache::remove_ancestors(Caches& caches, std::string_view key, Dropped& dropped) {
  const MutexGuard walk(m_walk_lock);
  dropped.splice(dropped.end(), caches.sub_trees.take_if([key](std::string_view above) {
    return above != key && has_key_inside(key, above);
  }));
}

void in_process_cache::remove_descendants(Caches& caches, std::string_view key, Dropped& dropped) {
  const MutexGuard walk(m_walk_lock);
  dropped.splice(dropped.end(), caches.sub_trees.take_if([key](std::string_view below) {
    return has_key_inside(below, key);
  }));
}

void in_process_cache::drop_all(Caches& caches, Dropped& dropped) {
  dropped.splice(dropped.end(), caches.sub_trees.take_all());
  caches.values.clear_cache();
}

// An empty key is what the root is under.
void in_process_cache::clean(Caches& caches, std::string_view key, Dropped& dropped) {
  logger.detail("cleaning subtree <%s> and all ancestors and descendants from the cache", key);
  if (key.empty()) return drop_all(caches, dropped);
  if (caches.has_sub_trees) {
    remove_ancestors(caches, key, dropped);
    remove_descendants(caches, key, dropped);
    dropped.splice(dropped.end(), caches.sub_trees.take_from_cache(std::string(key)));
  }
  if (!caches.has_values) return;
  const MutexGuard walk(m_walk_lock);
  caches.values.take_if([key](std::string_view below) { return has_key_inside(below, key); });
}

}  // namespace cfg
