#include <algorithm>

#include <database/CFGDB_Conn_Use.h>
#include <database/Db_KeyCheck.h>
#include <database/Db_Path.h>
#include <database/Db_Replacement.h>

// What changes the tree.

namespace {

const char* fault_of(std::string_view path, std::string_view value = std::string_view()) {
  return path.empty() ? "an empty path is no place" : Db_FaultOf(path, value);
}

}  // namespace

// The rows of the keys of a path that are missing, the highest first, after looking that they can
// be. Views of the path.
int CFGDB_Conn::missing_keys(const char* op, std::string_view path, std::vector<Db_Entry>& keys) {
  if (path == m_known_key) return OK;
  std::string value;
  for (std::string_view key = path; !key.empty(); key = Db_ParentOf(key)) {
    const Db_Result result = m_store->get(key, value);
    if (result == Db_Result::FAILED) return lose(op, key);
    if (result == Db_Result::OK) {
      if (value.empty()) break;
      return refuse(op, key, PARENT_IS_VALUE, "it is a value, nothing can be below it");
    }
    keys.push_back({key, "", 0});
  }
  std::reverse(keys.begin(), keys.end());
  return OK;
}

// Numbers the rows and puts all of them, or none.
int CFGDB_Conn::put(const char* op, std::vector<Db_Entry>& rows) {
  if (rows.empty()) return OK;
  for (Db_Entry& row : rows) row.sequence = ++m_sequence;
  if (m_store->put(rows.data(), rows.size()) != Db_Result::OK) return lose(op, rows.back().path);
  note_change();
  return OK;
}

int CFGDB_Conn::CreatePath(const RWCString& path, int commit, bool) {
  constexpr char op[] = "CreatePath";
  const Db_Path at(path);
  const Change use(*this, op, at);
  if (!use) return DB_ERROR;
  if (const char* fault = fault_of(at)) return refuse(op, at, DB_ERROR, fault);
  std::vector<Db_Entry> keys;
  int result = begin(op, at);
  if (result == OK) result = missing_keys(op, at, keys);
  if (result == OK) result = put(op, keys);
  if (result != OK) return result;
  m_known_key = at;
  return end(op, at, commit);
}

// The most frequent change, without a transaction of several calls. Empty where it is not that.
std::optional<int> CFGDB_Conn::replace_alone(const char* op, std::string_view path,
                                             std::string_view value) {
  if (!m_auto_commit || m_is_changing || m_is_lost || value.empty()) return std::nullopt;
  const Db_Result result = m_store->replace_value(path, value, m_write_wait);
  if (result == Db_Result::OK) return OK;
  if (result == Db_Result::NOT_FOUND) return std::nullopt;
  return reject_begin(op, path, result);
}

int CFGDB_Conn::InsertLine(const Tree_NodeInfo& record, int commit, bool) {
  constexpr char op[] = "InsertLine";
  const RWCString path = record.GetPath();
  const Db_Path at(path);
  const Change use(*this, op, at);
  if (!use) return DB_ERROR;
  const std::string_view value = record.ValueView();
  if (const char* fault = fault_of(at, value)) return refuse(op, at, DB_ERROR, fault);
  if (const auto result = commit ? replace_alone(op, at, value) : std::nullopt) return *result;
  if (begin(op, at) != OK) return DB_ERROR;
  std::string old;
  const Db_Result found = m_store->get(at, old);
  if (found == Db_Result::FAILED) return lose(op, at);
  const bool is_there = found == Db_Result::OK;
  if (is_there && old.empty() && !value.empty()) {
    return refuse(op, at, IS_KEY, "it is a key, no value can be there");
  }
  std::vector<Db_Entry> rows;
  int result = is_there ? OK : missing_keys(op, Db_ParentOf(at), rows);
  if (result != OK) return result;
  if (!is_there || old != value) rows.push_back({at, value, 0});
  result = put(op, rows);
  if (result != OK) return result;
  if (!is_there) m_known_key = Db_ParentOf(at);
  return end(op, at, commit);
}

int CFGDB_Conn::RemoveLeafLine(const RWCString& path, int commit) {
  constexpr char op[] = "RemoveLeafLine";
  const Db_Path at(path);
  const Change use(*this, op, at);
  if (!use || begin(op, at) != OK) return DB_ERROR;
  std::string value;
  const Db_Result result = m_store->get(at, value);
  if (result == Db_Result::FAILED) return lose(op, at);
  if (result == Db_Result::OK && !value.empty()) {
    const Db_Entry entry = {at, "", ++m_sequence};
    if (m_store->erase(&entry, 1) != Db_Result::OK) return lose(op, at);
    note_change();
  }
  return end(op, at, commit);
}

int CFGDB_Conn::RemoveSubTree(const RWCString& path, int commit, bool) {
  constexpr char op[] = "RemoveSubTree";
  const Db_Path at(path);
  const Change use(*this, op, at);
  if (!use) return DB_ERROR;
  if (at.empty()) return refuse(op, at, DB_ERROR, "an empty path is no place");
  if (begin(op, at) != OK) return DB_ERROR;
  std::string value;
  const Db_Result found = m_store->get(at, value);
  if (found == Db_Result::FAILED) return lose(op, at);
  const bool is_gone = found == Db_Result::NOT_FOUND || (use.set_savepoint() && erase_tree(at));
  if (!is_gone) return lose(op, at);
  return end(op, at, commit);
}

// The entry at a path, and all that is below it.
bool CFGDB_Conn::erase_tree(std::string_view top) {
  m_known_key.clear();
  const Db_Range range(top);
  const Db_Entry entry = {top, "", ++m_sequence};
  int64_t rows = 0;
  if (m_store->erase(&entry, 1) != Db_Result::OK ||
      m_store->erase_range(range.from, range.to, m_sequence + 1, rows) != Db_Result::OK) {
    return false;
  }
  m_sequence += rows;
  note_change();
  return true;
}

int CFGDB_Conn::Rename(const RWCString& path, const RWCString& new_path, int commit) {
  constexpr char op[] = "Rename";
  const Db_Path from(path), to(new_path);
  const Change use(*this, op, from);
  if (!use) return DB_ERROR;
  if (from.empty() || Db_ParentOf(from) != Db_ParentOf(to)) {
    return refuse(op, from, DB_ERROR, "a name is changed under the same key only");
  }
  if (begin(op, from) != OK) return DB_ERROR;
  std::string value;
  Db_Result result = m_store->get(to, value);
  if (result == Db_Result::OK) return refuse(op, to, DB_ERROR, "it is there already");
  Tmr_PtrSortedVector<Tree_NodeInfo> records;
  if (result == Db_Result::NOT_FOUND) result = read_renamed(from, to, records);
  if (result == Db_Result::NOT_FOUND) return refuse(op, from, DB_ERROR, "nothing is there");
  if (result == Db_Result::FAILED) return lose(op, from);
  Db_Replacement replacement;
  if (const char* fault = replacement.take(records)) {
    return refuse(op, replacement.fault_path(), DB_ERROR, fault);
  }
  if (!use.set_savepoint() || !erase_tree(from) ||
      replacement.write(*m_store, m_sequence) != Db_Result::OK) {
    return lose(op, from);
  }
  return end(op, from, commit);
}

// What is at and below `top`, as records at and below `new_top`.
Db_Result CFGDB_Conn::read_renamed(std::string_view top, std::string_view new_top,
                                   Tmr_PtrSortedVector<Tree_NodeInfo>& records) {
  const auto add = [&](std::string_view path, std::string_view value) {
    const std::string renamed = std::string(new_top).append(path.substr(top.size()));
    records.append(std::make_unique<Tree_NodeInfo>(renamed, RWCString(value)));
  };
  std::string value;
  Db_Result result = m_store->get(top, value);
  if (result != Db_Result::OK) return result;
  add(top, value);
  const Db_Range range(top);
  const auto cursor = m_store->range(range.from, range.to, 0, false);
  if (!cursor) return Db_Result::FAILED;
  Db_Entry entry;
  while ((result = cursor->next(entry)) == Db_Result::OK) add(entry.path, entry.value);
  return result == Db_Result::NOT_FOUND ? Db_Result::OK : result;
}

int CFGDB_Conn::WriteSubTree(const Tmr_PtrSortedVector<Tree_NodeInfo>& records,
                             const RWCString& path) {
  constexpr char op[] = "WriteSubTree";
  const Change use(*this, op, path);
  if (!use) return DB_ERROR;
  Db_Replacement replacement;
  if (const char* fault = replacement.take(records)) {
    const bool is_below_value = replacement.is_below_value();
    return refuse(op, replacement.fault_path(), is_below_value ? PARENT_IS_VALUE : DB_ERROR, fault);
  }
  const std::string_view top = replacement.top();
  if (begin(op, top) != OK) return DB_ERROR;
  m_known_key.clear();
  std::vector<Db_Entry> keys;
  int result = missing_keys(op, Db_ParentOf(top), keys);
  if (result != OK) return result;
  if (!use.set_savepoint()) return lose(op, top);
  result = put(op, keys);
  if (result != OK) return result;
  const int64_t before = m_sequence;
  if (replacement.write(*m_store, m_sequence) != Db_Result::OK) return lose(op, top);
  if (m_sequence != before) note_change();
  return end(op, top, 1);
}
