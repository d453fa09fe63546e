// The property tree of Boost.
#pragma once

#include <vector>

#include <boost/property_tree/ptree.hpp>

#include <common/installation.h>

namespace bench {

class property_tree {
 public:
  static constexpr const char* name = "boost::property_tree";

  explicit property_tree(const records& all) {
    std::vector<tree*> at(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
      const record& r = all[i];
      tree& parent = r.parent < 0 ? m_top : *at[static_cast<size_t>(r.parent)];
      at[i] = &parent.push_back({r.name, tree(r.value)})->second;
    }
  }

 private:
  using tree = boost::property_tree::ptree;
  tree m_top;
};

}  // namespace bench
