#include "document.h"

#include <CFG/CFG_SAXImport.h>
#include <tree/Tree_Node.h>

#include "failure.h"
#include "library_log.h"
#include "output.h"
#include "paths.h"

namespace cli {

namespace {

// "FILE:LINE:COLUMN: what is wrong"; no place where the fault has none.
Failure fault_in(const InputFile& file, const CFG_SAXImport& import) {
  std::string text = file.shown() + ":";
  if (import.GetErrorLine() > 0) {
    text +=
        std::to_string(import.GetErrorLine()) + ":" + std::to_string(import.GetErrorColumn()) + ":";
  }
  const RWCString& what = import.GetErrorMessage();
  return {BAD_INPUT, text + " " + (what.isNull() ? "it cannot be read" : what.str())};
}

// Parses the file; any fault is a Failure.
class Parse {
 public:
  Parse(const InputFile& file, uint64_t flags) {
    m_import.SetClearVectorAtDtor(true);
    if (m_import.Init(file.name(), flags) != 0) throw fault_in(file, m_import);
  }
  CFG_SAXImport* operator->() { return &m_import; }

 private:
  CFG_SAXImport m_import;
};

Tree_NodePtr build_branch(const InputFile& file, Parse& parse, int branch) {
  const Reasons reasons;
  Tree_NodePtr top = parse->BuildSubTreeIndex(branch);
  if (top) return top;
  const std::string path = parse->GetRootPathIndex(branch).str();
  throw Failure(BAD_INPUT, with_reason(file.shown() + ": the nodes below " + path +
                                           " make no tree: one is below a value, or key and value",
                                       reasons));
}

std::vector<std::string> paths_of_branches(Parse& parse) {
  std::vector<std::string> paths;
  paths.reserve(static_cast<size_t>(parse->GetNumOfVectors()));
  for (int i = 0; i < parse->GetNumOfVectors(); ++i) {
    paths.push_back(parse->GetRootPathIndex(i).str());
  }
  return paths;
}

// Lays a branch over what the tree holds at its path, whose names stand for nothing else.
bool add_branch(CFG_SubTree& tree, CFG_SubTree& branch, const std::string& path) {
  const std::string_view parent = parent_of(path);
  if (parent.empty()) return tree.MergeSubTree(&branch, "") == 0;
  const std::string_view root = first_of(path);
  const Tree_Path below_root(RWCString(parent.substr(std::min(root.size() + 1, parent.size()))));
  const Tree_NodePtr top = tree.GetData(), data = branch.GetData();
  const Tree_NodePtr key = top->GetOrCreateRelativeNode(below_root, top);
  const Tree_NodePtr there(key->Child(data->NameView()));
  return key->Put("", there ? Tree_Node::Merge(there, data) : data);
}

}  // namespace

bool Document::is_whole() const {
  return branches.size() == 1 && parent_of(branches.front()).empty();
}

Tree_Node* Document::top() const {
  Tree_Node* root = tree->GetData().get();
  if (branches.size() != 1) return root;
  const std::string& path = branches.front();
  return root->Find(
      std::string_view(path).substr(std::min(first_of(path).size() + 1, path.size())));
}

namespace {

Document read_bytes(const InputFile& file, Form form) {
  Document document;
  document.form = form;
  if (form == Form::SYNCED) {
    RWCString error;
    document.tree.reset(
        CFG_SynchronizedFileRepository::ReadFile(file.name(), document.synced, error));
    if (!document.tree) {
      throw Failure(BAD_INPUT, file.shown() + " is a synced file, but not whole: " + error.str());
    }
  } else {
    document.tree = read_byte_file(file, form);
  }
  const Tree_NodePtr top = document.tree->GetData();
  const std::string path = top->GetPath().str();
  document.branches.push_back(path);
  top->SetVirtualParentPath("");
  if (document.is_whole()) return document;
  const std::unique_ptr<CFG_SubTree> branch = std::move(document.tree);
  document.tree = std::make_unique<CFG_SubTree>(RWCString(first_of(path)));
  if (!add_branch(*document.tree, *branch, path)) {
    throw Failure(BAD_INPUT, file.shown() + ": its path " + printable(path) + " is none");
  }
  return document;
}

}  // namespace

Document read_document(const InputFile& file) {
  const Form form = form_of(file);
  if (form != Form::XML) return read_bytes(file, form);

  Parse parse(file, CFG_SAX_MULTI_BRANCH);
  Document document;
  document.branches = paths_of_branches(parse);
  if (document.is_whole()) {
    document.tree = std::make_unique<CFG_SubTree>(build_branch(file, parse, 0));
    document.tree->GetData()->SetVirtualParentPath("");
    return document;
  }

  const std::string root(first_of(document.branches.front()));
  document.tree = std::make_unique<CFG_SubTree>(RWCString(root));
  for (int i = 0; i < parse->GetNumOfVectors(); ++i) {
    const std::string& path = document.branches[static_cast<size_t>(i)];
    if (first_of(path) != root) {
      throw Failure(BAD_INPUT, file.shown() + ": its branches " + document.branches.front() +
                                   " and " + path + " have different roots");
    }
    CFG_SubTree branch(build_branch(file, parse, i));
    if (!add_branch(*document.tree, branch, path)) {
      throw Failure(BAD_INPUT, file.shown() + ": its branch " + path + " does not fit the others");
    }
  }
  return document;
}

std::vector<std::string> read_branch_paths(const InputFile& file) {
  Parse parse(file, CFG_SAX_MULTI_BRANCH);
  return paths_of_branches(parse);
}

ValueList read_value_list(const InputFile& file, const std::string& root) {
  Parse parse(file, CFG_SAX_VALUE_LIST);
  const CFG_SAXImport::NodesVec* records = parse->GetNodesVecIndex(0);
  ValueList list;
  if (!records) return list;
  list.count = records->entries();
  if (list.count > 0) list.common = parent_of((*records)[0]->PathView());
  for (size_t i = 0; i < records->entries() && list.outside.empty(); ++i) {
    const std::string_view path = (*records)[i]->PathView();
    while (!list.common.empty() && !is_within(path, list.common)) {
      list.common.resize(parent_of(list.common).size());
    }
    if (first_of(path) != root || parent_of(path).empty()) list.outside = path;
  }
  return list;
}

}  // namespace cli
