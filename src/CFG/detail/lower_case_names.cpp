#include <CFG/detail/lower_case_names.h>

#include <string>

#include <CFG/detail/actual_path.h>
#include <logging/Logger.h>
#include <tree/Tree_Walk.h>

namespace {
constexpr Log_Logger logger("src/CFG/detail/lower_case_names", 502);
}

namespace cfg {

Tree_NodePtr in_lower_case(const Tree_NodePtr& tree) {
  std::string lowered;
  Tree_Walk original(tree.get());
  while (original && !is_lowered(original->NameView(), lowered)) original.Next();
  if (!original) return tree;
  const Tree_NodePtr copy = tree->DuplicateFromHereDown(true);
  for (Tree_Walk walk(copy.get()); walk; walk.Next()) {
    if (!is_lowered(walk->NameView(), lowered) || walk->SetKeyName(lowered)) continue;
    return logger.reject(Tree_NodePtr(),
                         "<%s> differs in case alone from another child of its key, return NULL\n",
                         [&] { return walk->GetPath(); });
  }
  return copy;
}

}  // namespace cfg
