#include <CFG/CFG_Utils.h>
#include <tree/Tree_Node.h>

#include <charconv>
#include <limits>
#include <memory>

#include <CFG/CFG_SubTree.h>

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

void CFG_Utils::DeleteAllSubTrees() {
  for (int rest = m_sub_tree->GetSubTreeNum(""); rest > 0; --rest) {
    const SubTreePtr first(m_sub_tree->GetSubTree("", 0));
    if (first) m_sub_tree->DeleteSubTree(first->GetKeyName());
  }
}

void CFG_Utils::DeleteAllValues() {
  for (int rest = m_sub_tree->GetValueNum(""); rest > 0; --rest) {
    m_sub_tree->DeleteValue(m_sub_tree->GetValueName("", 0));
  }
}

RWCString CFG_Utils::ExtractOrdinal(RWCString name, long* ordinal) {
  const std::string_view text = name;
  const size_t digit = text.find_first_of("0123456789");
  *ordinal = -1;
  if (digit == text.npos) return RWCString();
  const auto read = std::from_chars(text.data() + digit, text.data() + text.size(), *ordinal);
  if (read.ec != std::errc()) *ordinal = std::numeric_limits<long>::max();
  return RWCString(text.substr(0, digit));
}

RWCString CFG_Utils::GetValueCompatible(RWCString name, RWCString alternative_name, RWCString) {
  for (const RWCString& candidate : {name, alternative_name}) {
    RWCString text = candidate.isNull() ? RWCString() : m_sub_tree->GetValue(candidate);
    if (!text.isNull()) return text;
  }
  return RWCString();
}

CFG_SubTree* CFG_Utils::MakeACopy(CFG_SubTree*& source) {
  const Tree_NodePtr data = source ? source->GetData() : Tree_NodePtr();
  return data ? new CFG_SubTree(data->DuplicateFromHereDown(TRUE)) : nullptr;
}

CFG_SubTree* CFG_Utils::MergeTrees(CFG_SubTree*& first, CFG_SubTree*& second) {
  constexpr char temporary_name[] = "____TEMP_____";
  CFG_SubTree root("__ROOT_TEMP__");
  CFG_SubTree* into = &root;
  if (first) add_subtree_by_name(into, first, temporary_name);
  if (second) add_subtree_by_name(into, second, temporary_name);
  return root.GetSubTree(temporary_name);
}

// An empty name can't be given back by SetKeyName, which refuses it.
void CFG_Utils::add_subtree_by_name(CFG_SubTree*& root, CFG_SubTree*& sub, RWCString name) {
  const RWCString own_name = sub->GetKeyName();
  sub->SetKeyName("", name);
  root->AddOrReplaceSubTree(sub, "", TRUE);
  if (!own_name.isNull()) {
    sub->SetKeyName("", own_name);
  } else if (const Tree_NodePtr node = sub->GetData()) {
    node->SetKeyName(own_name);
  }
}

void CFG_Utils::SwapKeysByOrdinal(RWCString prefix, int first, int second) {
  const RWCString temporary_name("temp_frw24frwer1244");
  const RWCString first_name = prefix + std::to_string(first).c_str();
  const RWCString second_name = prefix + std::to_string(second).c_str();
  m_sub_tree->SetKeyName(first_name, temporary_name);
  m_sub_tree->SetKeyName(second_name, first_name);
  m_sub_tree->SetKeyName(temporary_name, second_name);
}
