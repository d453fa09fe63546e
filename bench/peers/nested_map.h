// A std::map of children in each node.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <common/installation.h>

namespace bench {

class nested_map {
 public:
  static constexpr const char* name = "nested std::map";

  explicit nested_map(const records& all) {
    std::vector<node*> at(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
      const record& r = all[i];
      node& parent = r.parent < 0 ? m_top : *at[static_cast<size_t>(r.parent)];
      at[i] = &parent.children.try_emplace(r.name).first->second;
      at[i]->value = r.value;
    }
  }

  nested_map() = default;
  void set(std::string_view path, const std::string& value) {
    node* at = &m_top;
    for (size_t end; !path.empty(); path.remove_prefix(std::min(end + 1, path.size()))) {
      end = std::min(path.find('\\'), path.size());
      const std::string_view component = path.substr(0, end);
      auto child = at->children.find(component);
      if (child == at->children.end())
        child = at->children.try_emplace(std::string(component)).first;
      at = &child->second;
    }
    at->value = value;
  }

 private:
  struct node {
    std::string value;
    std::map<std::string, node, std::less<>> children;
  };
  node m_top;
};

}  // namespace bench
