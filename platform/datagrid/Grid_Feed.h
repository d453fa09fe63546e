// The side of a tree in the datagrid that fills it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <datagrid/Grid_Open.h>
#include <datagrid/Grid_Records.h>

// Brings records to the grid, all of them anew or what has changed (Grid_Records.h). Several
// feeders of one store may do so at a time. One thread; nothing throws but for want of memory.
class Grid_Feed {
 public:
  // What is there.
  struct State {
    bool is_whole = false;  // if not, all else is empty
    std::string id, turn;
    int64_t fed = 0;
    int64_t marks_seen = 0;
    std::vector<std::string> marked_trees, marked_values;
  };
  enum Outcome : uint8_t {
    DONE,
    OTHER,   // another feeder, or the grid itself, has changed what this would have gone on from
    FAILED,  // there is no connection any more
  };

  // Bytes that a value may have, and records and bytes that one change may. Values that are longer
  // are records that are not known.
  static constexpr size_t MOST_VALUE = size_t{1} << 20;
  static constexpr size_t MOST_RECORDS = 10000;
  static constexpr size_t MOST_BYTES = size_t{8} << 20;

  // `keep`: milliseconds that the grid keeps the records when nobody says that they are up to date.
  Grid_Feed(Grid_Place place, int64_t keep);
  Grid_Feed(const Grid_Feed&) = delete;
  Grid_Feed& operator=(const Grid_Feed&) = delete;
  ~Grid_Feed();

  bool is_connected() const { return m_store != nullptr; }
  bool connect();
  const std::string& error() const { return m_error; }  // why there is no connection, or no answer

  // What has this id and is fed up to this number is up to date.
  Outcome look(const std::string& id, int64_t last, State& state);

  // All anew. What is marked from the start on stays so.
  Outcome start();
  Outcome add(std::string_view path, std::string_view value, int64_t sequence);
  Outcome finish(const std::string& id, int64_t fed);

  // Takes away what is there, if it is still as it was.
  Outcome drop(const State& state);

  // What has changed, to be collected and then applied as one.
  class Changes {
   public:
    void set(std::string_view path, std::string_view value, int64_t sequence);
    void remove(std::string_view path) { add("d", path, {}); }
    void hide(std::string_view path) { add("s", path, "?0"); }
    void remove_below(std::string_view path) { add("r", path, {}); }
    bool is_too_large() const { return m_words.size() > 3 * MOST_RECORDS || m_bytes > MOST_BYTES; }

   private:
    friend class Grid_Feed;
    void add(const char* kind, std::string_view path, std::string record);
    std::vector<std::string> m_words;
    size_t m_bytes = 0;
  };
  Outcome apply(const Changes& changes, const State& state, int64_t to);

 private:
  using Words = std::vector<std::string>;
  Outcome run(const char* script, const Words& keys, const Words& given);
  Outcome flush();
  bool ask(const char* script, const Words& keys, const Words& given, Grid_Answer& answer);

  const Grid_Place m_place;
  const Words m_keys, m_new_keys, m_all_keys;
  const std::string m_keep;
  std::unique_ptr<Grid_Store> m_store;
  std::string m_error;
  std::string m_turn;  // of the last start
  Words m_pending;     // of add
  size_t m_pending_bytes = 0;
};
