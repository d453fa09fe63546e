#include <CFG/detail/tree_builder.h>

#include <CFG/detail/paths.h>
#include <logging/Logger.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);

Tree_NodePtr top_at(std::string_view path) {
  const split_path where(path);
  Tree_NodePtr top = new Tree_Node(where.name);
  top->SetPathAbove(RWCString(where.parent));
  return top;
}

}  // namespace

bool is_placed(Tree_PathBuilder::Outcome outcome, std::string_view path) {
  switch (outcome) {
    case Tree_PathBuilder::PLACED:
      return true;
    case Tree_PathBuilder::BELOW_A_VALUE:
      return logger.reject(
          false, "there is an element without a root in the vec: path_elem_parent_path\n");
    case Tree_PathBuilder::WITHOUT_NAME:
      return logger.reject(false, "AddNodeToTree : path <%s> has no name, return FALSE\n", path);
    case Tree_PathBuilder::OF_OTHER_KIND:
      return logger.reject(
          false, "AddNodeToTree : path <%s> is both a key and a value, return FALSE\n", path);
  }
  return false;
}

tree_builder::tree_builder(std::string_view top_path) : m_builder(top_at(top_path)) {}

}  // namespace cfg
