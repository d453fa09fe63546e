#include <datagrid/Grid_Feed.h>

#include <charconv>
#include <random>

namespace {

constexpr size_t MOST_ANSWER = size_t{8} << 20;
// Of one message while all is fed anew; others are served between two of them.
constexpr size_t ADDED_AT_ONCE = 1000;
constexpr size_t BYTES_AT_ONCE = size_t{1} << 20;

std::string record_of(std::string_view value, int64_t sequence) {
  if (value.size() > Grid_Feed::MOST_VALUE) return "?0";
  std::string record = std::to_string(sequence);
  return record.append(value.empty() ? " k" : " v").append(value);
}

std::string drawn_word() {
  static constexpr char digits[] = "0123456789abcdef";
  std::random_device random;
  std::string word;
  for (int i = 0; i < 32; ++i) word += digits[random() % 16];
  return word;
}

bool read_number(std::string_view text, int64_t& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end;
}

bool read_state(std::string_view packed, Grid_Feed::State& state) {
  std::string_view id, fed, turn, count, marks, path, number;
  for (std::string_view* const text : {&id, &fed, &turn, &count, &marks}) {
    if (!Grid_TakeText(packed, *text)) return false;
  }
  std::vector<std::pair<int64_t, std::string_view>> trees;
  if (!read_number(fed, state.fed) || !read_number(count, state.marks_seen)) return false;
  if (!Grid_ReadMarks(marks, trees)) return false;
  state.is_whole = true;
  state.id = id, state.turn = turn;
  for (const auto& tree : trees) state.marked_trees.emplace_back(tree.second);
  while (!packed.empty()) {
    if (!Grid_TakeText(packed, path) || !Grid_TakeText(packed, number)) return false;
    state.marked_values.emplace_back(path);
  }
  return true;
}

}  // namespace

Grid_Feed::Grid_Feed(Grid_Place place, int64_t keep)
    : m_place(std::move(place)),
      m_keys([](const Grid_Keys& k) {
        return Words{k.records, k.order, k.marked};
      }(Grid_Keys(m_place.grid))),
      m_new_keys([](const Grid_Keys& k) {
        return Words{k.new_records, k.new_order, k.new_marked};
      }(Grid_Keys(m_place.grid))),
      m_all_keys([this] {
        Words all = m_keys;
        all.insert(all.end(), m_new_keys.begin(), m_new_keys.end());
        return all;
      }()),
      m_keep(std::to_string(keep)) {}
Grid_Feed::~Grid_Feed() = default;

bool Grid_Feed::connect() {
  m_store = Grid_Open(m_place.address, m_error);
  return m_store != nullptr;
}

bool Grid_Feed::ask(const char* script, const Words& keys, const Words& given,
                    Grid_Answer& answer) {
  if (!m_store) return false;
  const std::string count = std::to_string(keys.size());
  Grid_Store::Words words = {"EVAL", script, count};
  words.insert(words.end(), keys.begin(), keys.end());
  words.insert(words.end(), given.begin(), given.end());
  if (m_store->ask(words, MOST_ANSWER, answer) && answer.kind != Grid_Answer::REFUSAL) return true;
  m_error = m_store->error();
  m_store.reset();
  return false;
}

Grid_Feed::Outcome Grid_Feed::run(const char* script, const Words& keys, const Words& given) {
  Grid_Answer answer;
  if (!ask(script, keys, given, answer)) return FAILED;
  return answer.kind == Grid_Answer::TEXT && answer.text == "ok" ? DONE : OTHER;
}

Grid_Feed::Outcome Grid_Feed::look(const std::string& id, int64_t last, State& state) {
  state = State();
  Grid_Answer answer;
  if (!ask(grid_scripts::LOOK, m_keys, {m_keep, id, std::to_string(last)}, answer)) return FAILED;
  if (answer.kind == Grid_Answer::TEXT && !read_state(answer.text, state)) state = State();
  return DONE;
}

// A word of its own each time: what was sent before and arrives late belongs to no later start.
Grid_Feed::Outcome Grid_Feed::start() {
  const std::string before = std::exchange(m_turn, drawn_word());
  m_pending.clear();
  m_pending_bytes = 0;
  return run(grid_scripts::START, m_new_keys, {m_turn, m_keep, before});
}

Grid_Feed::Outcome Grid_Feed::add(std::string_view path, std::string_view value, int64_t sequence) {
  m_pending.emplace_back(path);
  m_pending.push_back(record_of(value, sequence));
  m_pending_bytes += path.size() + m_pending.back().size();
  const bool is_full = m_pending.size() >= 2 * ADDED_AT_ONCE || m_pending_bytes >= BYTES_AT_ONCE;
  return is_full ? flush() : DONE;
}

Grid_Feed::Outcome Grid_Feed::flush() {
  Words given = {m_turn, m_keep};
  given.insert(given.end(), std::make_move_iterator(m_pending.begin()),
               std::make_move_iterator(m_pending.end()));
  m_pending.clear();
  m_pending_bytes = 0;
  return run(grid_scripts::APPEND, m_new_keys, given);
}

Grid_Feed::Outcome Grid_Feed::finish(const std::string& id, int64_t fed) {
  if (const Outcome outcome = flush(); outcome != DONE) return outcome;
  return run(grid_scripts::FINISH, m_all_keys, {m_turn, id, std::to_string(fed), m_keep});
}

Grid_Feed::Outcome Grid_Feed::drop(const State& state) {
  return run(grid_scripts::DROP, m_keys, {state.turn, std::to_string(state.fed)});
}

void Grid_Feed::Changes::set(std::string_view path, std::string_view value, int64_t sequence) {
  add("s", path, record_of(value, sequence));
}

void Grid_Feed::Changes::add(const char* kind, std::string_view path, std::string record) {
  m_bytes += path.size() + record.size();
  m_words.insert(m_words.end(), {kind, std::string(path)});
  m_words.push_back(std::move(record));
}

Grid_Feed::Outcome Grid_Feed::apply(const Changes& changes, const State& state, int64_t to) {
  Words given = {state.turn, std::to_string(state.fed), std::to_string(to),
                 std::to_string(state.marks_seen), m_keep};
  given.insert(given.end(), changes.m_words.begin(), changes.m_words.end());
  return run(grid_scripts::CHANGE, m_keys, given);
}
