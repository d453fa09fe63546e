#include <database/Db_Pattern.h>

#include <database/Db_Path.h>

std::string_view Db_BeforeWildcard(std::string_view path) {
  const size_t wildcard = path.find('%');
  return wildcard == path.npos ? path : Db_ParentOf(path.substr(0, wildcard));
}

Db_Result Db_EachChild(Db_Store& store, std::string_view path,
                       const std::function<bool(std::string_view, std::string_view)>& take) {
  const auto cursor = store.children(path);
  if (!cursor) return Db_Result::FAILED;
  const size_t below = path.empty() ? 0 : path.size() + 1;
  Db_Entry entry;
  Db_Result result;
  while ((result = cursor->next(entry)) == Db_Result::OK) {
    if (!take(entry.path.substr(below), entry.value)) return Db_Result::OK;
  }
  return result == Db_Result::NOT_FOUND ? Db_Result::OK : result;
}

Db_PatternWalk::Db_PatternWalk(Db_Store& store, std::string_view pattern)
    : m_store(store), m_fixed(1) {
  Tree_PathWalk walk(pattern);
  for (std::string_view name; walk.Next(name);) {
    if (name == "%") {
      m_fixed.emplace_back();
    } else {
      m_is_valid = m_is_valid && name.find('%') == name.npos;
      m_fixed.back() = Db_Join(m_fixed.back(), name);
    }
  }
  m_is_valid = m_is_valid && (m_fixed.size() > 1 || !m_fixed.back().empty());
}

Db_Result Db_PatternWalk::open(std::string parent) {
  Wildcard wildcard;
  const Db_Result result =
      Db_EachChild(m_store, parent, [&](std::string_view name, std::string_view value) {
        if (value.empty()) wildcard.keys.emplace_back(name);
        return true;
      });
  wildcard.parent = std::move(parent);
  m_open.push_back(std::move(wildcard));
  return result;
}

Db_Result Db_PatternWalk::next_candidate(std::string& path) {
  if (!m_is_valid) return Db_Result::NOT_FOUND;
  if (!m_is_started) {
    m_is_started = true;
    path = m_fixed[0];
    if (m_fixed.size() == 1) return Db_Result::OK;
    if (open(path) != Db_Result::OK) return Db_Result::FAILED;
  }
  while (!m_open.empty()) {
    Wildcard& wildcard = m_open.back();
    if (wildcard.next == wildcard.keys.size()) {
      m_open.pop_back();
      continue;
    }
    path = Db_Join(wildcard.parent, wildcard.keys[wildcard.next++]);
    path = Db_Join(path, m_fixed[m_open.size()]);
    if (m_open.size() + 1 == m_fixed.size()) return Db_Result::OK;
    if (open(path) != Db_Result::OK) return Db_Result::FAILED;
  }
  return Db_Result::NOT_FOUND;
}

Db_Result Db_PatternWalk::next(std::string& path, std::string& value) {
  Db_Result result;
  while ((result = next_candidate(path)) == Db_Result::OK) {
    if (m_fixed.size() > 1 && m_fixed.back().empty()) {  // a key that `%` stands for
      value.clear();
      return result;
    }
    result = m_store.get(path, value);
    if (result != Db_Result::NOT_FOUND) return result;
  }
  return result;
}
