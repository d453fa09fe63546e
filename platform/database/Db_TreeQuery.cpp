#include <database/Db_TreeQuery.h>

#include <algorithm>

#include <database/Db_Path.h>

Db_TreeQuery::Db_TreeQuery(Db_Store& store, const Asked& asked)
    : m_store(store),
      m_asked(asked),
      m_top(asked.wildcard ? Db_BeforeWildcard(asked.path) : std::string_view(asked.path)) {
  const bool walks = asked.wildcard && asked.path.find('%') != asked.path.npos && !asked.deleted &&
                     asked.above_sequence <= 0;
  if (walks) {
    m_state = std::make_unique<Db_OneState>(store);
    m_is_failed = !*m_state;
    m_walk = std::make_unique<Db_PatternWalk>(store, asked.path);
  } else {
    open(m_top);
  }
}

bool Db_TreeQuery::open(std::string_view path) {
  const Db_Range range(path);
  m_cursor = m_store.range(range.from, range.to, m_asked.above_sequence, m_asked.deleted);
  return m_cursor || fail();
}

bool Db_TreeQuery::next(std::string_view& path, std::string_view& value) {
  Db_Entry entry;
  if (!read_ahead(entry)) return false;
  path = entry.path.substr(m_top.empty() ? 0 : m_top.size() + 1);
  value = entry.value;
  return true;
}

bool Db_TreeQuery::has_tree() {
  const bool is_whole = !m_walk && !m_asked.deleted && m_asked.above_sequence <= 0;
  if (!m_is_ahead) look_ahead();
  return m_has_ahead || (is_whole && !m_top.empty() && !m_is_failed && is_empty_key());
}

void Db_TreeQuery::look_ahead() {
  Db_Entry entry;
  m_has_ahead = read(entry);
  m_is_ahead = true;
  m_ahead_path = m_has_ahead ? entry.path : "";  // of no row, what it views may be gone
  m_ahead_value = m_has_ahead ? entry.value : "";
}

// Looks again for what is below, since the key may have come together with that.
bool Db_TreeQuery::is_empty_key() {
  const Db_OneState state(m_store);
  std::string value;
  const Db_Result result = state ? m_store.get(m_top, value) : Db_Result::FAILED;
  if (result == Db_Result::FAILED) return fail();
  if (result == Db_Result::NOT_FOUND || !value.empty() || !open(m_top)) return false;
  look_ahead();
  return !m_is_failed;
}

bool Db_TreeQuery::read_ahead(Db_Entry& entry) {
  if (!m_is_ahead) return read(entry);
  m_is_ahead = false;
  entry = {m_ahead_path, m_ahead_value, 0};
  return m_has_ahead;
}

bool Db_TreeQuery::read(Db_Entry& entry) {
  if (m_is_failed) return false;
  if (m_walk) return read_match(entry);
  while (m_cursor) {
    const Db_Result result = m_cursor->next(entry);
    if (result == Db_Result::FAILED) return fail();
    if (result == Db_Result::NOT_FOUND) break;
    if (is_selected(entry.path)) return true;
  }
  m_cursor.reset();
  return false;
}

// What changed or was deleted belongs to a pattern when its components are those of the pattern
// as far as both go.
bool Db_TreeQuery::is_selected(std::string_view path) const {
  if (!m_asked.wildcard) return true;
  Tree_PathWalk names(path), parts(m_asked.path);
  std::string_view name, part;
  while (names.Next(name) && parts.Next(part)) {
    if (part != "%" && part != name) return false;
  }
  return true;
}

bool Db_TreeQuery::next_match() {
  m_previous.swap(m_match);
  const Db_Result result = m_walk->next(m_match, m_value);
  if (result == Db_Result::FAILED) return fail();
  if (result == Db_Result::NOT_FOUND) return false;
  // Keys that led to the previous match, too, were records then.
  const auto differ =
      std::mismatch(m_match.begin(), m_match.end(), m_previous.begin(), m_previous.end());
  const std::string_view common(m_match.data(),
                                static_cast<size_t>(differ.first - m_match.begin()));
  const size_t cut = common.rfind('\\');
  m_shown = std::max(m_top.size(), cut == common.npos ? 0 : cut);
  m_is_in_match = true;
  return true;
}

bool Db_TreeQuery::read_match(Db_Entry& entry) {
  while (m_is_in_match || next_match()) {
    if (m_shown < m_match.size()) {  // a key on the way, or the match itself
      const size_t from = m_shown ? m_shown + 1 : 0;
      m_shown = std::min(m_match.find('\\', from), m_match.size());
      entry = {std::string_view(m_match).substr(0, m_shown), "", 0};
      if (m_shown < m_match.size()) return true;
      entry.value = m_value;
      if (!m_value.empty()) return true;
      return open(m_match);
    }
    if (m_cursor) {
      const Db_Result result = m_cursor->next(entry);
      if (result == Db_Result::OK) return true;
      if (result == Db_Result::FAILED) return fail();
      m_cursor.reset();
    }
    m_is_in_match = false;
  }
  return false;
}
