#include <common/our_tree.h>

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace bench {

Tree_NodePtr build_tree(const records& all) {
  std::vector<Tree_Node*> at(all.size());
  Tree_NodePtr top;
  for (size_t i = 0; i < all.size(); ++i) {
    const record& r = all[i];
    if (r.parent < 0) {
      top = at[i] = new Tree_Node(r.name);
      continue;
    }
    Tree_Node& parent = *at[static_cast<size_t>(r.parent)];
    at[i] = r.value.empty() ? parent.AddKey(r.name) : parent.AddValue(r.name, r.value, 0);
    if (!at[i]) throw std::runtime_error("the tree refuses " + r.path);
  }
  return top;
}

size_t lookups_to_index(size_t nodes) {
  return std::bit_ceil(std::max<size_t>(256, nodes / 8 + 1));
}

}  // namespace bench
