#include <CFG/detail/held_tree.h>

#include <memory>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/key_search.h>
#include <CFG/detail/lower_case_names.h>
#include <CFG/detail/patterns.h>
#include <tree/Tree_Node.h>

namespace {
constexpr Log_Logger logger("src/CFG/detail/held_tree", 502);
}

namespace cfg {

// Made when the library is loaded: no child of a fork waits for it.
static CFG_SubTree& without_data = *new CFG_SubTree(Tree_NodePtr());

CFG_SubTree& held_tree::handle() const { return m_sub_tree ? *m_sub_tree : without_data; }

std::string_view held_tree::below_root(std::string_view path) const {
  const size_t cut = path.find('\\');
  if (cut != path.npos) return path.substr(cut + 1);
  const Tree_NodePtr top = m_sub_tree ? m_sub_tree->GetData() : Tree_NodePtr();
  return top && top->NameView() == actual_path(path).view() ? std::string_view() : path;
}

Tree_NodePtr held_tree::root() const {
  if (m_sub_tree) return m_sub_tree->GetData();
  return logger.reject(Tree_NodePtr(), "the repository holds no tree, return NULL\n");
}

Tree_NodePtr held_tree::node_at(std::string_view path) const {
  const Tree_NodePtr top = root();
  return top ? top->Find(actual_path(below_root(path))) : nullptr;
}

// A path with a `%` is a pattern, of which the part before it counts, unless something has just
// that path.
std::string_view held_tree::without_pattern(std::string_view path) const {
  const std::string_view front = before_wildcard(path);
  return front.size() == path.size() || node_at(path) ? path : front;
}

Tree_NodePtr held_tree::copy_at(std::string_view path) const {
  const Tree_NodePtr node = node_at(without_pattern(path));
  return node ? node->DuplicateFromHereDown(true) : node;
}

CFG_SubTree* held_tree::sub_tree_at(std::string_view path) const {
  RWCString below(below_root(without_pattern(path)));
  const std::unique_ptr<CFG_SubTree> found(handle().GetSubTree(below));
  return found ? new CFG_SubTree(found->GetData()->DuplicateFromHereDown(true)) : nullptr;
}

CFG_SubTree* held_tree::shared_at(std::string_view path) const {
  const Tree_NodePtr node = node_at(path);
  return node && !node->IsLeaf() ? new CFG_SubTree(node) : nullptr;
}

int held_tree::write(const Tree_NodePtr& given, const RWCString& path) const {
  const stored_paths as_stored;
  const Tree_NodePtr node = in_lower_case(given);
  if (given && !node) return FALSE;
  const RWCString below(below_root(path));
  const Tree_NodePtr top = root();
  // The handle would put the tree in the place of the root.
  const bool is_child_named_like_root =
      node && top && !path.isNull() && below.isNull() && node->NameView() == top->NameView();
  if (is_child_named_like_root) return top->Put("", node->DuplicateFromHereDown(TRUE));
  CFG_SubTree sub_tree(node);
  return handle().AddOrReplaceSubTree(&sub_tree, below);
}

int held_tree::rename(const Log_Logger& log, const RWCString& below,
                      const RWCString& key_name) const {
  std::string_view first;
  const bool is_root = !Tree_PathWalk(below).Next(first);
  if (!is_root) return handle().SetKeyName(below, key_name);
  if (key_name == handle().GetKeyName()) return TRUE;
  return log.reject(FALSE, "the root keeps its name, it can not be renamed to <%s>, return FALSE\n",
                    key_name);
}

String_Arr* held_tree::search(const Log_Logger& log, const RWCString& name,
                              const RWCString& path) const {
  log.trace("Start SearchKeyOrValueName(const RWCString & name,const RWCString & path)\n");
  return search_below(log, name, path,
                      [this](const RWCString& at) { return node_at(without_pattern(at)); });
}

String_Arr* filled_paths(const Log_Logger& log, const std::vector<RWCString>& paths,
                         const char* op) {
  if (paths.empty()) {
    return log.reject_at(LOG_LEVEL_TRACE, nullptr, "%s : no paths found , return NULL\n", op);
  }
  auto result = std::make_unique<String_Arr>(static_cast<int>(paths.size()));
  for (const RWCString& path : paths) result->AddStr(path);
  return result.release();
}

}  // namespace cfg
