// Changes.
#include <CFG/CFG_DBRepository.h>

#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/key_renaming.h>
#include <CFG/detail/paths.h>
#include <database/CFGDB_Conn.h>
#include <database/Db_Path.h>
#include <logging/Logger.h>
#include <tree/Tree_Walk.h>

using cfg::actual_string;
using Step = std::lock_guard<std::recursive_mutex>;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_DBRepository", 502);

constexpr char kRoot[] = "halvoria";
constexpr char kBelowRoot[] = "halvoria\\";
constexpr char kNoPath[] = "no path is given";

// The tree at `node` as rows in order of path, which are in lower case whoever made the tree. Ends
// at the first path that is too long to be written: each row has its whole path, so that all rows
// of a long chain of keys would take the square of its length.
std::unique_ptr<Tmr_PtrSortedVector<Tree_NodeInfo>> rows_of(const Tree_NodePtr& node,
                                                            const RWCString& path) {
  const auto count = static_cast<size_t>(node->GetNodeNum());
  auto rows = std::make_unique<Tmr_PtrSortedVector<Tree_NodeInfo>>(count);
  for (Tree_PathsWalk walk(node.get(), path); walk; walk.Next()) {
    std::string row = walk.Path();
    if (cfg::scan_for_change(row) & (cfg::CAPITAL | cfg::HIGH_BYTE)) cfg::to_lower(row);
    rows->append(new Tree_NodeInfo(RWCString(row), RWCString(walk->GetText())));
    if (walk.Path().size() > DB_PATH_BYTES) break;
  }
  rows->sort();
  return rows;
}

}  // namespace

int CFG_DBRepository::refused(const RWCString& path, const char* why, int answer) {
  if (CFGDB_Conn* const db = m_connection) db->NoteRefusal(path, why);
  return answer;
}

bool CFG_DBRepository::may_write(const RWCString& path, const char* op) {
  return IsValidPath(path, op) || refused(path, "path validation refuses it", FALSE);
}

// The tree has one root, whatever is written beside it.
bool CFG_DBRepository::is_below_root(const RWCString& path) {
  const Db_Path at(path);
  const std::string_view text = at;
  return text == kRoot || text.starts_with(kBelowRoot) ||
         refused(path, "it is not below 'halvoria'", FALSE);
}

// --- values --------------------------------------------------------------------------------------

int CFG_DBRepository::SetValue(const RWCString& value_path, const RWCString& value_data) try {
  constexpr char op[] = "SetValue(const RWCString & value_path,const RWCString & value_data)";
  const actual_string actual(value_path);
  const RWCString& path = actual;
  logger.info("Start SetValue for path <%s> and value <%s>\n", path, value_data);
  if (path.isNull()) {
    return refused(
        path, kNoPath,
        logger.reject(FALSE, "%svalue <%s> : value_path is Null,return FALSE\n", op, value_data));
  }
  if (value_data.isNull()) {
    return refused(
        path, "a value is not empty",
        logger.reject(FALSE, "%s for path <%s> : value_data is Null,return FALSE\n", op, path));
  }
  if (!may_write(path, "CFG_DBRepository::SetValue")) return FALSE;
  if (!path.view().starts_with(kBelowRoot)) {
    return refused(
        path, "values are below 'halvoria' only",
        logger.reject(FALSE,
                      "%s for path <%s> : Path does not start with 'halvoria\\',return FALSE\n", op,
                      path));
  }
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), "DB",
                                   CFG_PerformanceEvent::PERFORMANCE_SET_VALUE, path);
  const Step one_step(m_changes);
  const Tree_NodeInfo row(path, value_data);
  logger.detail("SetValue : before insert line for path <%s> and value <%s>\n", path, value_data);
  switch (ask("SetValue", [&](CFGDB_Conn& db) { return db.InsertLine(row, 1, true); })) {
    case CFGDB_Conn::OK:
      return TRUE;
    case CFGDB_Conn::DB_ERROR:  // the keys above and the value are put in one go
      return logger.reject(FALSE, "%s <%s>: db error in create parent path <%s> ,return FALSE\n",
                           op, path, row.GetParentPath());
    case CFGDB_Conn::PARENT_IS_VALUE:
      return logger.reject(
          FALSE, "%s path <%s>:  one of parent path <%s> nodes exist as value,return FALSE\n", op,
          path, row.GetParentPath());
    case CFGDB_Conn::IS_KEY:
      return logger.reject(FALSE, "%s : path <%s> exist as sub tree ,return FALSE\n", op, path);
    case CFGDB_Conn::COMMIT_ERROR:
      return logger.reject(FALSE, "%s : InsertLine  return commit error ,return FALSE\n", op);
  }
  return FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::DeleteValue(const RWCString& given) try {
  constexpr char op[] = "DeleteValue(const RWCString & path)";
  const actual_string actual(given);
  const RWCString& path = actual;
  logger.info("Start %s %s\n", op, path);
  if (path.isNull()) {
    return refused(path, kNoPath,
                   logger.reject(FALSE, "%s : path is empty string, return FALSE\n", op));
  }
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), "DB",
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_VALUE, path);
  const Step one_step(m_changes);
  switch (ask("DeleteValue", [&](CFGDB_Conn& db) { return db.RemoveLeafLine(path, 1); })) {
    case CFGDB_Conn::OK:
      return TRUE;
    case CFGDB_Conn::DB_ERROR:
      return logger.reject(FALSE, "%s  for path <%s>: RemoveLine return db error , return FALSE\n",
                           op, path);
    case CFGDB_Conn::COMMIT_ERROR:
      return logger.reject(
          FALSE, "%s for path <%s> : RemoveLine return commit error , return FALSE\n", op, path);
  }
  return FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::SetValueName(const RWCString& given_path, const RWCString& old_name,
                                   const RWCString& new_name) try {
  constexpr char op[] = "CFG_DBRepository::SetValueName";
  const actual_string actual(given_path);
  const RWCString& path = actual;
  logger.info("SetValueName>> path:<%s>, old_name:<%s>, new_name:<%s> \n", path, old_name,
              new_name);
  if (!IsValidPath(path, op) || !IsValidPath(old_name, op) || !IsValidPath(new_name, op)) {
    return logger.reject(
        FALSE,
        "in %s : Path or value names are not valid returning FALSE. path <%s>  old name <%s>  new name <%s>\n",
        op, path, old_name, new_name);
  }
  const RWCString old_path = cfg::actual_path(cfg::join(path, old_name).str()).copy();
  const cfg::key_renaming asked(old_path, cfg::actual_path(new_name));
  const Step one_step(m_changes);
  const bool is_refused = asked.fault || GetValue(old_path).isNull() ||
                          (!asked.changes_nothing() && is_taken(asked.to));
  if (is_refused) {
    return logger.reject(FALSE, "in %s : value <%s> can not be renamed to <%s>, returning FALSE\n",
                         op, old_path, asked.to);
  }
  if (asked.changes_nothing()) return TRUE;
  logger.info("SetValueName>> Removing <%s>,<%s> \n", path, old_name);
  logger.info("SetValueName>> Inserting <%s>,<%s> \n", path, new_name);
  const int renamed = ask(op, [&](CFGDB_Conn& db) { return db.Rename(asked.from, asked.to, 1); });
  if (renamed == CFGDB_Conn::DB_ERROR) {
    return logger.reject(FALSE, "SetValueName(): db error in InsertLine path <%s> ,return FALSE\n",
                         asked.to);
  }
  if (renamed == CFGDB_Conn::COMMIT_ERROR) {
    return logger.reject(FALSE, "SetValueName() : InsertLine  return commit error ,return FALSE\n");
  }
  return renamed == CFGDB_Conn::OK;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// --- keys ----------------------------------------------------------------------------------------

int CFG_DBRepository::CreatePath(const RWCString& path) try {
  constexpr char op[] = "CreatePath(const RWCString& path)";
  const actual_string actual(path);
  logger.trace("Start %s for path <%s>\n", op, actual.text());
  if (actual.empty()) {
    return logger.reject(FALSE, "%s : path is an empty string , return empty string\n", op);
  }
  if (!is_below_root(actual)) {
    return logger.reject(FALSE, "CreatePath(): path <%s> is not below 'halvoria', return FALSE\n",
                         actual.text());
  }
  const Step one_step(m_changes);
  const int made = ask(op, [&](CFGDB_Conn& db) { return db.CreatePath(actual, 1, true); });
  if (made == CFGDB_Conn::DB_ERROR) {
    return logger.reject(FALSE, "CreatePath(): db error in CreatePath <%s> ,return FALSE\n",
                         actual.text());
  }
  if (made == CFGDB_Conn::OK) return TRUE;
  return logger.reject(FALSE, "CreatePath(): path <%s> was not created (%d), return FALSE\n",
                       actual.text(), made);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::DeleteSubTree(const RWCString& given) try {
  constexpr char op[] = "CFG_DBRepository::DeleteSubTree";
  constexpr char signature[] = "DeleteSubTree(const RWCString & path)";
  const actual_string actual(given);
  const RWCString& path = actual;
  logger.trace("Start %s for path <%s>\n", op, path);
  if (path.isNull()) {
    return refused(path, kNoPath,
                   logger.reject(FALSE, "%s : path is empty string, return FALSE\n", signature));
  }
  // What an import let in can go again.
  const bool is_there = ask(op, [&](CFGDB_Conn& db) { return db.IsSubTreeExist(path, 0) != 0; });
  if (!is_there && !may_write(path, op)) return FALSE;
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), "DB",
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_SUB_TREE, path);
  const Step one_step(m_changes);
  switch (ask(op, [&](CFGDB_Conn& db) { return db.RemoveSubTree(path, 1, true); })) {
    case CFGDB_Conn::OK:
      return TRUE;
    case CFGDB_Conn::DB_ERROR:
      return logger.reject(FALSE, "%s for path <%s> : db error, return FALSE\n", signature, path);
    case CFGDB_Conn::COMMIT_ERROR:
      return logger.reject(FALSE, "%s for path <%s> : commit error, return FALSE\n", signature,
                           path);
  }
  return FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  constexpr char op[] = "CFG_DBRepository::AddOrReplaceSubTree";
  const actual_string actual(path);
  logger.trace("Start %s for path <%s>\n", op, actual.text());
  if (!sub_tree) {
    return logger.reject(FALSE, "%s, for path <%s> sub_tree is NULL, return FALSE\n", op,
                         actual.text());
  }
  if (!may_write(actual, op)) return FALSE;
  Tree_NodePtr data = sub_tree->GetData();
  return WriteSubTree(data, actual);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& given) try {
  const actual_string actual(given);
  const RWCString& path = actual;
  logger.info("Start WriteSubTree for path <%s>\n", path);
  if (!sub_tree) {
    return logger.reject(FALSE, "path <%s> sub tree data is null, return FALSE\n", path);
  }
  if (path.isNull() && sub_tree->NameView() != kRoot) {
    return refused(path, "the root alone is written without a path",
                   logger.reject(FALSE, "path is empty string, key is <%s> return FALSE\n",
                                 sub_tree->NameView()));
  }
  if (!path.isNull() && !is_below_root(path)) {
    return logger.reject(FALSE, "path <%s> is not below 'halvoria', return FALSE\n", path);
  }
  if (sub_tree->NameView().empty()) {
    return refused(
        path, "the key to be written has no name",
        logger.reject(FALSE, "path <%s>: sub_tree->GetKeyName return empty string, return FALSE\n",
                      path));
  }
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), "DB",
                                   CFG_PerformanceEvent::PERFORMANCE_WRITE_SUB_TREE, path);
  const auto rows = rows_of(sub_tree, path);
  const Step one_step(m_changes);
  const int written =
      ask("WriteSubTree", [&](CFGDB_Conn& db) { return db.WriteSubTree(*rows, path); });
  if (written == CFGDB_Conn::OK) return TRUE;
  return logger.reject(FALSE, "path <%s>: sub tree <%s> was not written (%d), return FALSE\n", path,
                       sub_tree->NameView(), written);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) try {
  constexpr char op[] = "SetOrRanameKeyName(const RWCString & path,const RWCString & key_name)";
  logger.info("Start %s for path <%s> new key name <%s>\n", op, path, key_name);
  if (key_name.isNull()) {
    return logger.reject(FALSE, "%s for path <%s>: key_name is empty string, return FALSE\n", op,
                         path);
  }
  if (path.isNull()) {
    return logger.reject(FALSE, "%s : path is empty string, return FALSE new key name <%s>\n", op,
                         key_name);
  }
  const cfg::key_renaming asked(path, key_name);
  if (asked.fault) {
    return logger.reject(FALSE, "%s : path <%s> can not be renamed to <%s>: %s, return FALSE\n", op,
                         path, key_name, asked.fault);
  }
  const Step one_step(m_changes);
  if (!ask(op, [&](CFGDB_Conn& db) { return db.IsSubTreeExist(asked.from, 0); })) {
    return logger.reject(
        FALSE, "%s : path <%s> does not exist or not represent a sub tree, return FALSE\n", op,
        path);
  }
  if (asked.changes_nothing()) return TRUE;
  if (is_taken(asked.to)) {
    return logger.reject(FALSE, "%s : the parent of path %s has a child %s already, return FALSE\n",
                         op, path, key_name);
  }
  const int renamed = ask(op, [&](CFGDB_Conn& db) { return db.Rename(asked.from, asked.to, 1); });
  if (renamed == CFGDB_Conn::OK) return TRUE;
  return logger.reject(FALSE, "%s : path <%s> was not renamed to <%s> (%d), return FALSE\n", op,
                       path, key_name, renamed);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

bool CFG_DBRepository::is_taken(const RWCString& path) {
  const cfg::failure_watch reads;
  const bool is_there = ask("SetOrRanameKeyName", [&](CFGDB_Conn& db) {
    return db.IsSubTreeExist(path, 0) || !db.GetValue(path).isNull();
  });
  reads.check();
  return is_there;
}
