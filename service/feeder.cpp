#include "feeder.h"

#include <algorithm>
#include <exception>

#include <logging/Logger.h>

namespace service {

namespace {

constexpr Log_Logger logger("service/feeder", 508);

using std::chrono::milliseconds;
using std::chrono::seconds;

// Commits of another service, or of a program that has opened the store itself, wake nobody.
constexpr auto EVERY = seconds(1);
// What is committed meanwhile goes together.
constexpr auto COLLECT = milliseconds(5);
constexpr auto LONGEST_PAUSE = seconds(30);

}  // namespace

Feeder::Feeder(Stores& stores, Grid_Place place, int64_t keep, std::function<void()> tell_ready)
    : Thread("svcfg feeder"),
      m_stores(stores),
      m_grid(place, keep * 1000),
      m_where(place.address.host + ":" + std::to_string(place.address.port) + ", grid " +
              place.grid),
      m_tell_ready(std::move(tell_ready)) {}

void Feeder::stop() {
  m_is_over = true;
  m_end.signal();
  m_wake.signal();
  join();
}

void Feeder::Run() {
  for (seconds pause = EVERY; !m_is_over;) {
    bool is_fed = false;
    try {
      is_fed = feed();
    } catch (const std::exception& failure) {  // such as no memory
      fail(failure.what());
    }
    if (is_fed) {
      pause = EVERY;
      m_wake.wait_for(EVERY);
      m_end.wait_for(COLLECT);
    } else {
      m_end.wait_for(pause);
      pause = std::min<seconds>(2 * pause, LONGEST_PAUSE);
    }
  }
}

// Once until it works again.
bool Feeder::fail(const std::string& why) {
  if (m_is_over || std::exchange(m_is_failing, true)) return false;
  logger.warning("the datagrid at %s is not fed: %s; it is tried again\n", m_where, why);
  return false;
}

bool Feeder::done(FedTree& tree) {
  if (std::exchange(m_is_failing, false)) {
    logger.info("the datagrid at %s is fed again\n", m_where);
  }
  if (tree.has_paths() && !std::exchange(m_is_ready_told, true)) m_tell_ready();
  return true;
}

bool Feeder::feed() {
  const Stores::Lease store = m_stores.lease();
  if (!store) return fail("the service cannot reach its store");
  FedTree tree(*store, [this] { return m_is_over.load(); });
  if (!tree.read_position()) return fail("the store failed");
  if (!m_grid.is_connected() && !m_grid.connect()) return fail(m_grid.error());
  Grid_Feed::State state;
  if (m_grid.look(tree.id(), tree.last(), state) != Grid_Feed::DONE) return fail(m_grid.error());
  if (!state.is_whole) return feed_anew("nothing is there", tree);
  if (state.id != tree.id()) return feed_anew("it is of another store, or other paths", tree);
  if (state.fed > tree.last()) {
    if (m_grid.drop(state) == Grid_Feed::FAILED) return fail(m_grid.error());
    return feed_anew("the store is older", tree);
  }
  if (!tree.knows_deletions_since(state.fed)) {
    return feed_anew("deletions since then are forgotten", tree);
  }
  const auto& trees = state.marked_trees;
  const bool has_odd_mark = std::any_of(trees.begin(), trees.end(), [](const std::string& path) {
    return path.empty() || path.find('<') != path.npos;
  });
  if (has_odd_mark) return feed_anew("too much is marked", tree);
  const bool has_marks = !trees.empty() || !state.marked_values.empty();
  if (state.fed == tree.last() && !has_marks) return done(tree);
  return feed_from(state, tree);
}

bool Feeder::feed_from(const Grid_Feed::State& state, FedTree& tree) {
  Grid_Feed::Changes changes;
  if (!tree.read_changes(state, changes)) return fail("the store failed");
  if (changes.is_too_large()) return feed_anew("too much has changed", tree);
  const Grid_Feed::Outcome outcome = m_grid.apply(changes, state, tree.last());
  if (outcome == Grid_Feed::FAILED) return fail(m_grid.error());
  if (outcome == Grid_Feed::OTHER) return true;  // looks again
  logger.detail("the datagrid at %s has changes up to %ld\n", m_where, tree.last());
  return done(tree);
}

bool Feeder::feed_anew(const std::string& why, FedTree& tree) {
  switch (m_grid.start()) {
    case Grid_Feed::FAILED:
      return fail(m_grid.error());
    case Grid_Feed::OTHER:
      logger.detail("the datagrid at %s is fed by somebody else\n", m_where);
      return true;
    case Grid_Feed::DONE:
      break;
  }
  size_t records = 0;
  Grid_Feed::Outcome outcome = Grid_Feed::DONE;
  const bool is_read = tree.read_all([&](std::string_view path, std::string_view value) {
    ++records;
    outcome = m_grid.add(path, value, tree.last());
    return outcome == Grid_Feed::DONE;
  });
  if (is_read) outcome = m_grid.finish(tree.id(), tree.last());
  if (outcome == Grid_Feed::FAILED) return fail(m_grid.error());
  if (outcome == Grid_Feed::OTHER) return true;
  if (!is_read) return fail("the store failed");
  logger.info("the datagrid at %s was fed %Iu records up to change %ld, all of them anew: %s\n",
              m_where, records, static_cast<long>(tree.last()), why);
  m_is_ready_told = false;
  return done(tree);
}

}  // namespace service
