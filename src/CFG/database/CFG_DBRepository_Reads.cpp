// Values, lists and searches: what the connection answers itself.
#include <CFG/CFG_DBRepository.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/held_tree.h>
#include <CFG/detail/node_address.h>
#include <CFG/detail/paths.h>
#include <database/CFGDB_Conn.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::actual_string;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_DBRepository", 502);

constexpr int kMostRules = 10;

// The rules as the connection compares them.
Tree_PathAndValueArray actual_rules(Tree_PathAndValueArray& rules, bool is_case_sensitive) {
  Tree_PathAndValueArray actual(rules.m_count);
  for (int i = 0; i < rules.m_count; ++i) {
    const Tree_ValueAndPath& rule = *rules.GetPV(i);
    const RWCString path = cfg::actual_path(rule.GetPath()).copy();
    const RWCString value =
        is_case_sensitive ? RWCString(rule.GetValue()) : cfg::actual_path(rule.GetValue()).copy();
    actual.SetPV(i, path, value);
  }
  return actual;
}

}  // namespace

// --- values --------------------------------------------------------------------------------------

RWCString CFG_DBRepository::GetValue(const RWCString& path) try {
  constexpr char op[] = "GetValue(RWCString & path)";
  const actual_string actual(path);
  logger.trace("Start %s %s\n", op, actual.text());
  if (actual.empty()) {
    return logger.reject(RWCString(), "%s :  path is an empty string,return empty string\n", op);
  }
  return ask(op, [&](CFGDB_Conn& db) { return db.GetValue(actual); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_DBRepository::GetValue(RWCString& path, int index) try {
  constexpr char op[] = "GetValue(RWCString & path,int index)";
  const actual_string actual(path);
  logger.trace("Start %s%s\n", op, actual.text());
  return ask(op, [&](CFGDB_Conn& db) { return db.GetValue(actual, index); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_DBRepository::GetValueName(RWCString& path, int index) try {
  constexpr char op[] = "GetValueName(RWCString & path,int index)";
  const actual_string actual(path);
  logger.trace("Start %s %s\n", op, actual.text());
  return ask(op, [&](CFGDB_Conn& db) { return db.GetValueName(actual, index); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

int CFG_DBRepository::GetValueNum(RWCString& path) try {
  constexpr char op[] = "GetValueNum(RWCString & path)";
  const actual_string actual(path);
  logger.trace("Start %s %s\n", op, actual.text());
  return ask(op, [&](CFGDB_Conn& db) { return db.GetValueNum(actual); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::GetSubTreeNum(RWCString& path) try {
  constexpr char op[] = "GetSubTreeNum(RWCString & path)";
  const actual_string actual(path);
  logger.trace("Start %s %s\n", op, actual.text());
  return ask(op, [&](CFGDB_Conn& db) { return db.GetSubTreeNum(actual); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::GetSubTreeEntriesCount(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeEntriesCount(RWCString & path)";
  const actual_string actual(path);
  logger.trace("Start %s %s\n", op, actual.text());
  return ask(op, [&](CFGDB_Conn& db) { return db.GetSubTreeEntriesCount(actual); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::IsSubTreeExist(const RWCString& path) try {
  const actual_string actual(path);
  logger.trace("Start IsSubTreeExist(const RWCString & path) for %s\n", actual.text());
  return ask("IsSubTreeExist(const RWCString & path)",
             [&](CFGDB_Conn& db) { return db.IsSubTreeExist(actual, 0); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// --- lists ---------------------------------------------------------------------------------------

String_Arr* CFG_DBRepository::GetSubTreePaths(const RWCString& path) try {
  constexpr char op[] = "GetSubTreePaths(const RWCString & _path)";
  const actual_string actual(path);
  logger.trace("Start %s for path <%s>\n", op, actual.text());
  std::vector<RWCString> names;
  ask(op, [&](CFGDB_Conn& db) { return db.GetSubTreePathes(actual, names); });
  return cfg::filled_paths(logger, names, op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_PathAndValueArray* CFG_DBRepository::GetSubTreeValues(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeValues(const RWCString & _path)";
  const actual_string actual(path);
  logger.trace("Start %s for path <%s>\n", op, actual.text());
  const std::unique_ptr<Tmr_PtrSortedVector<Tree_NodeInfo>> records(
      ask(op, [&](CFGDB_Conn& db) { return db.GetSubTreeValues(actual); }));
  if (!records || records->isEmpty()) {
    return logger.reject_at(LOG_LEVEL_TRACE, nullptr, "%s : No Values found , return NULL\n", op);
  }
  const int count = static_cast<int>(records->entries());
  auto values = std::make_unique<Tree_PathAndValueArray>(count);
  for (int i = 0; i < count; ++i) {
    const Tree_NodeInfo& record = *(*records)[static_cast<size_t>(i)];
    values->SetPV(i, record.GetPath(), record.GetValue());
  }
  return values.release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- paths with wildcards ------------------------------------------------------------------------

String_Arr* CFG_DBRepository::FillPath(RWCString path) try {
  constexpr char op[] = "FillPath(const RWCString path)";
  const actual_string actual(path);
  logger.trace("Start %s for path <%s>\n", op, actual.text());
  if (actual.empty()) {
    return logger.reject(nullptr, "%s : path is an empty string , return empty string\n", op);
  }
  return cfg::filled_paths(logger, ask(op, [&](CFGDB_Conn& db) { return db.FillPath(actual); }),
                           op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

RWCString CFG_DBRepository::FillPath(RWCString path, RWCString value_name,
                                     RWCString value_data) try {
  constexpr char op[] =
      "FillPath(const RWCString path, const RWCString value_name, const RWCString value_data)";
  const actual_string actual(path);
  logger.trace("Start %s  path %s name %s value %s\n", op, actual.text(), value_name, value_data);
  const struct {
    const char* argument;
    const RWCString& text;
  } arguments[] = {{"path", actual}, {"value_name", value_name}, {"value_data", value_data}};
  for (const auto& given : arguments) {
    if (!given.text.isNull()) continue;
    return logger.reject(RWCString(), "%s : %s is an empty string , return empty string\n", op,
                         given.argument);
  }

  const RWCString actual_name = cfg::actual_path(value_name).copy();
  const auto path_of = [&](const RWCString& name, const RWCString& value) {
    return ask(op, [&](CFGDB_Conn& db) { return db.FillPath(actual, name, value); });
  };
  if (!cfg::is_address_name(actual_name)) return path_of(actual_name, value_data);
  const OneState state(*this);
  if (!state) return RWCString();
  return cfg::node_address(value_data).first_found(actual_name, value_data, path_of);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

String_Arr* CFG_DBRepository::FillPathWithRuleList(RWCString path, Tree_PathAndValueArray* rules,
                                                   int is_case_sensitive, int is_and_rule) try {
  constexpr char op[] =
      " FillPathWithRuleList(const RWCString path, Tree_PathAndValueArray* pPathAndValue, T_Bool isCaseSensitive, T_Bool isAndRule) ";
  const actual_string actual(path);
  logger.trace("Start %s\n", op);
  if (actual.empty()) {
    return logger.reject(nullptr, "%s : path is an empty string , return empty string\n", op);
  }
  const int count = rules ? rules->m_count : 0;
  if (count < 1 || count > kMostRules) {
    return logger.reject(nullptr, "to many rules (%d) in call to %s", count, op);
  }
  Tree_PathAndValueArray compared = actual_rules(*rules, is_case_sensitive);
  return cfg::filled_paths(logger,
                           ask(op,
                               [&](CFGDB_Conn& db) {
                                 return db.FillPathWithRuleList(actual, &compared,
                                                                is_case_sensitive, is_and_rule);
                               }),
                           op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- searches ------------------------------------------------------------------------------------

String_Arr* CFG_DBRepository::SearchPatternExtended(const RWCString& pattern, const RWCString path,
                                                    bool find_key, bool find_value_name,
                                                    bool find_value_data, bool value_case_sensitive,
                                                    bool match_whole_word) try {
  constexpr char op[] =
      "SearchPatternExtended(const RWCString& pattern, const RWCString path,, bool find_key, bool find_value_name, bool find_value_data, bool value_case_sensitive, bool match_whole_word)";
  const actual_string actual(path);
  logger.trace(
      "Start %s pattern <%s> path <%s> key(%d) name(%d) value(%d) value case sensitive(%d),match whole word (%d)\n",
      op, pattern, actual.text(), find_key, find_value_name, find_value_data, value_case_sensitive,
      match_whole_word);
  if (actual.empty()) {
    return logger.reject(nullptr, "%s : path is an empty string , return NULL\n", op);
  }
  RWCString searched = pattern;
  if (!value_case_sensitive) tolower(searched);
  return cfg::filled_paths(logger,
                           ask(op,
                               [&](CFGDB_Conn& db) {
                                 return db.SearchPatternExtended(
                                     searched, actual, find_key, find_value_name, find_value_data,
                                     value_case_sensitive, match_whole_word);
                               }),
                           op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

String_Arr* CFG_DBRepository::found_below(const RWCString& name, const RWCString& path) {
  if (name.isNull()) {
    return logger.reject(nullptr, "name parameter is an empty string, return NULL\n");
  }
  if (path.isNull()) {
    return logger.reject(nullptr, "name<%s>: path parameter is an empty string, return NULL\n",
                         name);
  }
  if (const Tree_NodePtr key = GetTreeNode(path)) return key->Search(name, key, FALSE);
  if (!GetValue(path).isNull()) {
    return logger.reject(nullptr, "path %s represent a value, return NULL\n", path);
  }
  return logger.reject(nullptr, "fail to get sub tree for path : <%s>, return NULL\n", path);
}

// --- nodes ---------------------------------------------------------------------------------------

RWCString CFG_DBRepository::GetNodeName(RWCString ae) try {
  constexpr char op[] = "GetNodeName(const RWCString ae)";
  logger.trace("Start %s for ae <%s>\n", op, ae);
  if (ae.isNull()) {
    return logger.reject(RWCString(), "%s : ae parameter is an empty string, return empty string\n",
                         op);
  }
  return ask(op, [&](CFGDB_Conn& db) { return db.GetNodeName(ae); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_DBRepository::GetNodeNameByIp(RWCString ip) try {
  constexpr char op[] = "GetNodeNameByIp(const RWCString ip)";
  logger.trace("Start %s for ip %s\n", op, ip);
  if (ip.isNull()) {
    return logger.reject(RWCString(), "%s : ip parameter is an empty string, return empty string\n",
                         op);
  }
  if (ip == "127.0.0.1") {
    RWCString host = GetLocalHostName();
    tolower(host);
    return host;
  }
  const OneState state(*this);
  if (!state) return RWCString();
  return cfg::node_address(ip).first_found(ip, [&](const RWCString& address) {
    return ask(op, [&](CFGDB_Conn& db) { return db.GetNodeNameByIp(address); });
  });
} catch (...) {
  return cfg::answered(logger, RWCString());
}
