#include <cstdlib>

#include <database/CFGDB_Conn_Use.h>
#include <database/Db_KeyCheck.h>
#include <database/Db_Path.h>
#include <database/Db_Pattern.h>
#include <database/Db_TreeQuery.h>

// What is read of single keys, and record by record.

CFGDB_Conn::OneState::OneState(CFGDB_Conn& conn) : m_reads(new Reads(conn, "OneState")) {
  if (!*m_reads) m_reads.reset();
}
CFGDB_Conn::OneState::~OneState() = default;

// --- values and keys --------------------------------------------------------------------------

RWCString CFGDB_Conn::GetValue(const RWCString& path) {
  const Db_Path at(path);
  const Use use(*this, "GetValue", at);
  std::string value;
  if (!use || use.failed(m_store->get(at, value))) return RWCString();
  return value;
}

// Goes through the keys, or the values, directly under a key up to a position, of which it gives
// name and value; through all for a negative one. How many it saw.
int CFGDB_Conn::children(const char* op, const RWCString& path, bool keys, int position,
                         RWCString* name, RWCString* value) {
  const Db_Path at(path);
  const Use use(*this, op, at);
  int seen = 0;
  const auto take = [&](std::string_view child, std::string_view text) {
    if (text.empty() != keys) return true;
    if (seen++ != position) return true;
    if (name) *name = child;
    if (value) *value = text;
    return false;
  };
  return use && !use.failed(Db_EachChild(*m_store, at, take)) ? seen : 0;
}

RWCString CFGDB_Conn::GetValue(const RWCString& path, int index) {
  RWCString value;
  if (index >= 0) children("GetValue", path, false, index, nullptr, &value);
  return value;
}

RWCString CFGDB_Conn::GetValueName(const RWCString& path, int index) {
  RWCString name;
  if (index >= 0) children("GetValueName", path, false, index, &name, nullptr);
  return name;
}

int CFGDB_Conn::GetValueNum(const RWCString& path) {
  return children("GetValueNum", path, false, -1, nullptr, nullptr);
}

int CFGDB_Conn::GetSubTreeNum(const RWCString& path) {
  return children("GetSubTreeNum", path, true, -1, nullptr, nullptr);
}

int CFGDB_Conn::GetSubTreeEntriesCount(const RWCString& path) {
  const Db_Path at(path);
  const Use use(*this, "GetSubTreeEntriesCount", at);
  const Db_Range range(at);
  int64_t rows = 0;
  if (!use || use.failed(m_store->count(range.from, range.to, rows))) return 0;
  return static_cast<int>(rows);
}

int CFGDB_Conn::IsSubTreeExist(const RWCString& path, int) {
  const Db_Path at(path);
  const Use use(*this, "IsSubTreeExist", at);
  std::string value;
  if (!use) return 0;
  const Db_Result result = m_store->get(at, value);
  return !use.failed(result) && result == Db_Result::OK && value.empty();
}

bool CFGDB_Conn::GetSubTreePathes(const RWCString& path, std::vector<RWCString>& names) {
  const Db_Path at(path);
  const Reads use(*this, "GetSubTreePathes", at);
  names.clear();
  if (!use || !IsSubTreeExist(path, 0)) return false;
  const auto take = [&names](std::string_view name, std::string_view value) {
    if (value.empty()) names.emplace_back(name);
    return true;
  };
  if (!use.failed(Db_EachChild(*m_store, at, take))) return true;
  names.clear();
  return false;
}

Tmr_PtrSortedVector<Tree_NodeInfo>* CFGDB_Conn::GetSubTreeValues(const RWCString& path) {
  const Db_Path at(path);
  const Reads use(*this, "GetSubTreeValues", at);
  if (!use || !IsSubTreeExist(path, 0)) return nullptr;
  auto values = std::make_unique<Tmr_PtrSortedVector<Tree_NodeInfo>>();
  const auto take = [&values](std::string_view name, std::string_view value) {
    if (!value.empty()) values->append(new Tree_NodeInfo(RWCString(name), RWCString(value)));
    return true;
  };
  if (use.failed(Db_EachChild(*m_store, at, take))) return nullptr;
  return values.release();
}

// --- record by record -------------------------------------------------------------------------

int CFGDB_Conn::StartTreeQuery(const RWCString& path, bool wildcard, bool,
                               const RWCString* sequence, bool deleted, bool all_deleted) {
  const Db_Path at(path);
  const Use use(*this, "StartTreeQuery", at);
  m_query.reset();
  m_query_root.clear();
  m_is_query_failed = false;
  if (!use || use.gives_up(0)) return -1;
  Db_TreeQuery::Asked asked{std::string(std::string_view(at)), wildcard, 0, deleted};
  if (sequence && !all_deleted) {
    asked.above_sequence = std::strtoll(sequence->data(), nullptr, 10);
  }
  m_query = std::make_unique<Db_TreeQuery>(*m_store, asked);
  if (m_query->is_failed()) {
    use.failed(Db_Result::FAILED);
    m_query.reset();
    return -1;
  }
  m_query_root = m_query->top();
  return 1;
}

bool CFGDB_Conn::next_record(std::string_view& path, std::string_view& value) {
  bool is_there = false;
  each_record([&](std::string_view next_path, std::string_view next_value) {
    path = next_path;
    value = next_value;
    is_there = true;
    return false;
  });
  return is_there;
}

// What an exception breaks off is not all.
bool CFGDB_Conn::each_record(
    const std::function<bool(std::string_view, std::string_view)>& take) try {
  const Use use(*this, "GetNextFromQuery", m_query_root);
  if (!use || !m_query) return false;
  std::string_view path, value;
  for (uint32_t rows = 1; m_query->next(path, value); ++rows) {
    if (!take(path, value)) return true;
    if (use.gives_up(rows)) {
      m_is_query_failed = true;
      return false;
    }
  }
  if (m_query->is_failed() && !m_is_query_failed) {
    m_is_query_failed = use.failed(Db_Result::FAILED);
  }
  return false;
} catch (...) {
  m_is_query_failed = true;
  throw;
}

Tree_NodeInfo* CFGDB_Conn::GetNextFromQuery() {
  Tree_NodeInfo* record = nullptr;
  each_record([&](std::string_view path, std::string_view value) {
    record = new Tree_NodeInfo(RWCString(path), RWCString(value));
    return false;
  });
  return record;
}

bool CFGDB_Conn::has_tree() {
  const Use use(*this, "StartTreeQuery", m_query_root);
  if (!use || !m_query) return false;
  const bool has = m_query->has_tree();
  if (m_query->is_failed() && !m_is_query_failed) {
    m_is_query_failed = use.failed(Db_Result::FAILED);
  }
  return has;
}

bool CFGDB_Conn::is_query_failed() const { return m_is_query_failed; }

int CFGDB_Conn::CloseTreeQuery(bool) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_query.reset();
  return 1;
}

bool CFGDB_Conn::CheckIntegrity(std::string& reason) {
  const Use use(*this, "CheckIntegrity");
  if (!use) {
    reason = "not connected to a database";
    return false;
  }
  if (!is_tree(reason)) return false;
  const Db_Result result = m_store->check(reason);
  if (result == Db_Result::FAILED) reason = m_store->error();
  return result == Db_Result::OK;
}

bool CFGDB_Conn::Inspect(
    const std::function<void(std::string_view path, std::string_view value)>& row,
    const std::function<void(const std::string& what)>& damage) {
  using Take = std::function<void(std::string_view path, std::string_view value)>;
  using Say = std::function<void(const std::string& what)>;
  struct Findings : Db_Findings {
    Findings(const Take& taker, const Say& sayer) : take(taker), say(sayer) {}
    void row(const Db_Entry& entry) override {
      const Db_KeyCheck::Fault fault = keys.add(entry.path, entry.value.empty());
      if (fault == Db_KeyCheck::NO_PARENT) {
        damage("the key above <" + std::string(entry.path) + "> is missing");
      }
      if (fault != Db_KeyCheck::PARENT_IS_VALUE) return take(entry.path, entry.value);
      damage("what is above <" + std::string(entry.path) + "> is a value");
    }
    void damage(const std::string& what) override { say(what); }

    const Take& take;
    const Say& say;
    Db_KeyCheck keys;
  };
  const Use use(*this, "Inspect");
  if (!use) return false;
  Findings findings(row, damage);
  m_store->inspect(findings);
  return true;
}

bool CFGDB_Conn::CheckSome(std::string& from, int rows) {
  const Use use(*this, "CheckSome", from);
  if (!use) return false;
  const auto cursor = m_store->range(from, "\xff\xff\xff\xff", 0, false);
  Db_Result result = cursor ? Db_Result::OK : Db_Result::FAILED;
  Db_Entry entry;
  while (result == Db_Result::OK && rows-- > 0) result = cursor->next(entry);
  if (result == Db_Result::OK) {
    from = entry.path;
  } else {
    from.clear();
  }
  return !use.failed(result);
}

bool CFGDB_Conn::is_tree(std::string& reason) {
  const auto cursor = m_store->range("", "\xff\xff\xff\xff", 0, false);
  Db_KeyCheck check;
  Db_Entry entry;
  Db_Result result = cursor ? Db_Result::OK : Db_Result::FAILED;
  while (result == Db_Result::OK && (result = cursor->next(entry)) == Db_Result::OK) {
    const Db_KeyCheck::Fault fault = check.add(entry.path, entry.value.empty());
    if (fault == Db_KeyCheck::NONE) continue;
    reason = "what is above <" + std::string(entry.path) + "> is " +
             (fault == Db_KeyCheck::NO_PARENT ? "missing" : "a value");
    return false;
  }
  if (result == Db_Result::FAILED) reason = m_store->error();
  return result == Db_Result::NOT_FOUND;
}
