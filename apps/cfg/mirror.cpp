#include "mirror.h"

#include <tree/Tree_Node.h>

#include "failure.h"
#include "library_log.h"
#include "paths.h"

namespace cli {

namespace {

// "" for the root itself.
std::string_view below_root(std::string_view path) {
  return path.substr(std::min(first_of(path).size() + 1, path.size()));
}

// The path as far as its names hold no `%`, which look-ups would take for any text.
std::string_view before_wildcard(std::string_view path) {
  const size_t at = path.find('%');
  return at == path.npos ? path : parent_of(path.substr(0, at));
}

// Texts of this length may have been longer.
constexpr size_t CUT = Tree_ValueAndPath::kValueRoom - 1;

}  // namespace

Mirror::Mirror(CFG_RepositoryServices& repository, std::string root, std::string name)
    : m_repository(repository), m_root(std::move(root)), m_name(std::move(name)) {
  forget();
}

void Mirror::forget() {
  m_replaced.clear();
  m_tree = Tree_NodePtr(new Tree_Node(m_root));
  m_fetched.clear();
}

// Nothing, with an error in the log, is no answer; nor is a tree that broke off on its way. That a
// tree is large is told as an error too.
template <class Answer>
Answer Mirror::ask(const std::function<Answer()>& question) {
  const Reasons reasons;
  Answer answer = question();
  const std::string reason = reasons.first();
  const bool is_note = reason.rfind("Serious warning", 0) == 0;
  if (reason.empty() || is_note) return answer;
  throw Failure(UNREACHABLE, m_name + " does not answer: " + reason);
}

Kind Mirror::kind(std::string_view path) {
  if (is_fetched(path) || before_wildcard(path) != path) {
    const Tree_Node* there = node(path);
    return !there ? Kind::NOTHING : there->IsLeaf() ? Kind::VALUE : Kind::KEY;
  }
  const RWCString wanted(path);
  if (ask<int>([&] { return m_repository.IsSubTreeExist(wanted); })) return Kind::KEY;
  const RWCString value = ask<RWCString>([&] { return m_repository.GetValue(wanted); });
  return value.isNull() ? Kind::NOTHING : Kind::VALUE;
}

bool Mirror::is_fetched(std::string_view path) const {
  for (; !path.empty(); path = parent_of(path)) {
    if (m_fetched.count(path)) return true;
  }
  return false;
}

Tree_Node* Mirror::node(std::string_view path) {
  if (!is_fetched(path) && !fetch(std::string(before_wildcard(path)))) return nullptr;
  return m_tree->Find(below_root(path));
}

bool Mirror::fetch(const std::string& path) {
  const RWCString wanted(path);
  const std::string_view below = below_root(path);
  const RWCString text =
      below.empty() ? RWCString() : ask<RWCString>([&] { return m_repository.GetValue(wanted); });
  std::unique_ptr<CFG_SubTree> branch;
  if (text.isNull()) {
    branch = ask<std::unique_ptr<CFG_SubTree>>(
        [&] { return std::unique_ptr<CFG_SubTree>(m_repository.GetSubTree(wanted)); });
    if (!branch) return false;
  }
  m_fetched.insert(path);
  if (below.empty()) {
    m_replaced.push_back(m_tree);
    m_tree = branch->GetData();
    m_tree->SetVirtualParentPath("");
    return true;
  }
  const Tree_NodePtr parent =
      m_tree->GetOrCreateRelativeNode(Tree_Path(RWCString(parent_of(below))), m_tree);
  const Tree_NodePtr part = parent->Get(RWCString(name_of(below)), parent);
  if (part) {
    m_replaced.push_back(part);
    parent->Remove(part);
  }
  if (branch) {
    parent->Add(branch->GetData());
  } else {
    parent->AddValue(name_of(below), text, 0);
  }
  return true;
}

Tree_NodePtr Mirror::listing(const std::string& path) {
  if (kind(path) != Kind::KEY) return {};
  if (is_fetched(path)) return Tree_NodePtr(node(path));
  const RWCString wanted(path);
  Tree_NodePtr key(new Tree_Node(name_of(path)));
  const auto names = ask<std::unique_ptr<String_Arr>>(
      [&] { return std::unique_ptr<String_Arr>(m_repository.GetSubTreePaths(wanted)); });
  for (int i = 0; names && i < names->GetArrLen(); ++i) key->AddKey(names->GetStr(i));
  const auto values = ask<std::unique_ptr<Tree_PathAndValueArray>>([&] {
    return std::unique_ptr<Tree_PathAndValueArray>(m_repository.GetSubTreeValues(wanted));
  });
  for (int i = 0; values && i < values->m_count; ++i) {
    const Tree_ValueAndPath& record = *values->GetPV(i);
    RWCString text = record.GetValue();
    if (text.length() >= CUT) {
      text = m_repository.GetValue(RWCString(child_of(path, record.GetPath())));
    }
    key->AddValue(record.GetPath(), text, 0);
  }
  return key;
}

CFG_SubTree Mirror::copy(const std::set<std::string>& paths) {
  CFG_SubTree copied{RWCString(m_root)};
  const Tree_NodePtr root = copied.GetData();
  for (const std::string& path : paths) {
    // As far as there are keys.
    Tree_Node* at = root.get();
    std::string above = m_root;
    for (std::string_view rest = below_root(path); at;) {
      const std::string_view name = first_of(rest);
      if (name.size() == rest.size()) break;
      above = child_of(above, name);
      rest.remove_prefix(name.size() + 1);
      if (kind(above) != Kind::KEY) at = nullptr;
      if (at) at = at->Child(name) ? at->Child(name) : at->AddKey(name);
    }
    const Tree_Node* branch = at ? node(path) : nullptr;
    if (!branch) continue;
    if (path == m_root) return CFG_SubTree(branch->DuplicateFromHereDown(true));
    if (!at->Child(name_of(path))) at->Add(branch->DuplicateFromHereDown(true));
  }
  return copied;
}

}  // namespace cli
