#include <algorithm>

#include <database/CFGDB_Conn_Use.h>
#include <database/Db_Path.h>
#include <database/Db_Pattern.h>
#include <i18n/I18n_LowerCase.h>

// What is found by patterns.

namespace {

// The `nth` component of a path, from 0 on.
RWCString component(std::string_view path, int nth) {
  Tree_PathWalk walk(path);
  std::string_view name;
  for (int i = 0; i <= nth; ++i) {
    if (!walk.Next(name)) return RWCString();
  }
  return RWCString(name);
}

// Whether the key has that value at a name, which may end with a `%` for any end. NOT_FOUND when
// it has not.
Db_Result has_value(Db_Store& store, std::string_view key, std::string_view name,
                    std::string_view value) {
  if (name.empty() || name.back() != '%') {
    std::string stored;
    const Db_Result result = store.get(Db_Join(key, name), stored);
    return result == Db_Result::OK && stored != value ? Db_Result::NOT_FOUND : result;
  }
  const std::string from = Db_Join(key, name.substr(0, name.size() - 1));
  const auto cursor = store.range(from, Db_Range(key).to, 0, false);
  if (!cursor) return Db_Result::FAILED;
  Db_Entry entry;
  Db_Result result;
  while ((result = cursor->next(entry)) == Db_Result::OK) {
    if (entry.path.substr(0, from.size()) != from) return Db_Result::NOT_FOUND;
    const bool is_below = entry.path.find('\\', from.size()) != entry.path.npos;
    if (!is_below && entry.value == value) return result;
  }
  return result;
}

bool is_of_word(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || c == '_' || (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
         (byte >= 'A' && byte <= 'Z');
}

// A pattern that texts are searched for.
struct Sought {
  std::string_view pattern;
  bool whole_word;

  bool is_in(std::string_view text) const {
    for (size_t at = text.find(pattern); at != text.npos; at = text.find(pattern, at + 1)) {
      const size_t end = at + pattern.size();
      const bool is_word =
          (!at || !is_of_word(text[at - 1])) && (end == text.size() || !is_of_word(text[end]));
      if (!whole_word || is_word) return true;
    }
    return false;
  }
};

// A rule of a list: a path below the key, and the value there.
struct Rule {
  std::string path;
  std::string value;
};

bool is_rule_met(const Rule& rule, std::string_view value, bool is_case_sensitive) {
  return is_case_sensitive ? value == rule.value : I18n_LowerCase(value) == rule.value.c_str();
}

std::vector<Rule> rules_of(Tree_PathAndValueArray* rules, bool is_case_sensitive) {
  std::vector<Rule> result;
  for (int i = 0; rules && i < rules->m_count; ++i) {
    const Tree_ValueAndPath& rule = *rules->GetPV(i);
    const RWCString value(rule.GetValue()), name(rule.GetPath());
    const Db_Path path(name);
    result.push_back({std::string(std::string_view(path)),
                      is_case_sensitive ? value.str() : I18n_LowerCase(value).str()});
  }
  return result;
}

}  // namespace

std::vector<RWCString> CFGDB_Conn::FillPath(const RWCString& path) {
  const Db_Path pattern(path);
  const Reads use(*this, "FillPath", pattern);
  std::vector<RWCString> paths;
  if (!use) return paths;
  Db_PatternWalk walk(*m_store, pattern);
  std::string found, value;
  Db_Result result;
  while ((result = walk.next(found, value)) == Db_Result::OK) paths.emplace_back(found);
  if (use.failed(result)) paths.clear();
  return paths;
}

RWCString CFGDB_Conn::FillPath(const RWCString& path, const RWCString& name,
                               const RWCString& value) {
  const Db_Path pattern(path), below(name);
  const Reads use(*this, "FillPath", pattern);
  if (!use || value.isNull() || below.empty()) return RWCString();
  Db_PatternWalk walk(*m_store, pattern);
  std::string found;
  Db_Result result;
  while ((result = walk.next_candidate(found)) == Db_Result::OK) {
    result = has_value(*m_store, found, below, value);
    if (result == Db_Result::OK) return found;
    if (result == Db_Result::FAILED) break;
  }
  use.failed(result);
  return RWCString();
}

std::vector<RWCString> CFGDB_Conn::FillPathWithRuleList(const RWCString& path,
                                                        Tree_PathAndValueArray* rules,
                                                        int is_case_sensitive, int is_and) {
  const Db_Path pattern(path);
  const Reads use(*this, "FillPathWithRuleList", pattern);
  std::vector<RWCString> paths;
  const std::vector<Rule> sought = rules_of(rules, is_case_sensitive);
  if (!use || sought.empty()) return paths;
  Db_Result result;
  const auto is_met = [&](const std::string& key, const Rule& rule) {
    std::string value;
    const Db_Result read = m_store->get(Db_Join(key, rule.path), value);
    if (read == Db_Result::FAILED) result = read;
    return read == Db_Result::OK && !value.empty() && is_rule_met(rule, value, is_case_sensitive);
  };
  Db_PatternWalk walk(*m_store, pattern);
  std::string found, value;
  while ((result = walk.next(found, value)) == Db_Result::OK) {
    if (!value.empty()) continue;
    const auto met = [&](const Rule& rule) { return is_met(found, rule); };
    const bool is_selected = is_and ? std::all_of(sought.begin(), sought.end(), met)
                                    : std::any_of(sought.begin(), sought.end(), met);
    if (result == Db_Result::FAILED) break;
    if (is_selected) paths.emplace_back(found);
  }
  if (use.failed(result)) paths.clear();
  return paths;
}

std::vector<RWCString> CFGDB_Conn::SearchPatternExtended(const RWCString& pattern,
                                                         const RWCString& path, bool find_key,
                                                         bool find_value_name, bool find_value_data,
                                                         bool is_case_sensitive,
                                                         bool match_whole_word) {
  const Db_Path top(path);
  const Use use(*this, "SearchPatternExtended", top);
  std::vector<RWCString> paths;
  if (!use || pattern.isNull()) return paths;
  const RWCString lower = I18n_LowerCase(pattern);
  const Sought in_name{lower, match_whole_word};
  const Sought in_text{is_case_sensitive ? pattern : lower, match_whole_word};
  const auto is_text_found = [&](std::string_view text) {
    return is_case_sensitive ? in_text.is_in(text) : in_text.is_in(I18n_LowerCase(text).str());
  };
  const Db_Range range(top);
  const auto cursor = m_store->range(range.from, range.to, 0, false);
  Db_Entry entry;
  Db_Result result = cursor ? Db_Result::OK : Db_Result::FAILED;
  for (uint32_t rows = 1;
       result == Db_Result::OK && (result = cursor->next(entry)) == Db_Result::OK; ++rows) {
    if (use.gives_up(rows)) return {};
    const bool is_key = entry.value.empty();
    const bool is_found =
        ((is_key ? find_key : find_value_name) && in_name.is_in(Db_NameOf(entry.path))) ||
        (!is_key && find_value_data && is_text_found(entry.value));
    if (is_found) paths.emplace_back(entry.path);
  }
  if (use.failed(result)) paths.clear();
  return paths;
}

// --- nodes ------------------------------------------------------------------------------------

RWCString CFGDB_Conn::GetNodeName(const RWCString& ae) {
  return component(FillPath("halvoria\\system\\nodes\\%\\servers\\%\\dicom", "ae", ae).str(), 3);
}

RWCString CFGDB_Conn::GetNodeNameByIp(const RWCString& ip) {
  const Reads use(*this, "GetNodeNameByIp");
  if (!use) return RWCString();
  const RWCString pattern("halvoria\\system\\nodes\\%\\properties");
  RWCString path = FillPath(pattern, "inet_address", ip);
  for (char digit = '1'; path.isNull() && digit <= '5'; ++digit) {
    path = FillPath(pattern, RWCString("additional_inet_address_") + digit, ip);
  }
  return component(path, 3);
}
