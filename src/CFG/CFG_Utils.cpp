#include <CFG/CFG_Utils.h>
#include <tree/Tree_Node.h>

#include <charconv>
#include <limits>
#include <memory>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Utils", 502);

// By their names as they are, which a path need not carry.
void remove_children(CFG_SubTree& tree, Tree_ChildList::Kind kind) {
  const Tree_NodePtr key = tree.GetData();
  if (!key) return;
  while (const Tree_Node* child = key->ChildAt(kind, 0)) key->Remove(child->GetKeyName());
}

}  // namespace

void CFG_Utils::DeleteAllSubTrees() try {
  remove_children(*m_sub_tree, Tree_ChildList::KEYS);
} catch (...) {
  cfg::log_exception(logger, __func__);
}

void CFG_Utils::DeleteAllValues() try {
  remove_children(*m_sub_tree, Tree_ChildList::VALUES);
} catch (...) {
  cfg::log_exception(logger, __func__);
}

RWCString CFG_Utils::ExtractOrdinal(RWCString name, long* ordinal) try {
  const std::string_view text = name;
  const size_t digit = text.find_first_of("0123456789");
  *ordinal = -1;
  if (digit == text.npos) return RWCString();
  const auto read = std::from_chars(text.data() + digit, text.data() + text.size(), *ordinal);
  if (read.ec != std::errc()) *ordinal = std::numeric_limits<long>::max();
  return RWCString(text.substr(0, digit));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Utils::GetValueCompatible(RWCString name, RWCString alternative_name, RWCString) try {
  for (const RWCString& candidate : {name, alternative_name}) {
    RWCString text = candidate.isNull() ? RWCString() : m_sub_tree->GetValue(candidate);
    if (!text.isNull()) return text;
  }
  return RWCString();
} catch (...) {
  return cfg::answered(logger, RWCString());
}

CFG_SubTree* CFG_Utils::MakeACopy(CFG_SubTree*& source) try {
  const Tree_NodePtr data = source ? source->GetData() : Tree_NodePtr();
  return data ? new CFG_SubTree(data->DuplicateFromHereDown(TRUE)) : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// Neither tree is touched: others may read them.
CFG_SubTree* CFG_Utils::MergeTrees(CFG_SubTree*& first, CFG_SubTree*& second) try {
  const auto data_of = [](CFG_SubTree* tree) { return tree ? tree->GetData() : Tree_NodePtr(); };
  const Tree_NodePtr merged = Tree_Node::Merge(data_of(first), data_of(second));
  if (!merged) return nullptr;
  merged->SetVirtualParentPath(RWCString());
  merged->SetKeyName("____temp_____");
  return new CFG_SubTree(merged);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

void CFG_Utils::SwapKeysByOrdinal(RWCString prefix, int first, int second) try {
  const auto numbered = [&prefix](int ordinal) {
    const RWCString name = prefix + std::to_string(ordinal).c_str();
    return cfg::actual_path(name).copy();
  };
  const RWCString first_name = numbered(first), second_name = numbered(second);
  const Tree_NodePtr top = m_sub_tree->GetData();
  Tree_Node* const one = top ? top->Find(first_name) : nullptr;
  Tree_Node* const other = top ? top->Find(second_name) : nullptr;
  if (one && other) {
    one->ExchangeNames(*other);
  } else {
    m_sub_tree->SetKeyName(one ? first_name : second_name, one ? second_name : first_name);
  }
} catch (...) {
  cfg::log_exception(logger, __func__);
}
