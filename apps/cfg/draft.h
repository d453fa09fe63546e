// A change of the tree before anybody else sees it.
#pragma once

#include <vector>

#include <CFG/CFG_RepositoryServices.h>

#include "differences.h"

namespace cli {

// Dropped unless it is saved. The store that it is of outlives it.
class Draft {
 public:
  Draft() = default;
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  virtual ~Draft() = default;

  virtual CFG_RepositoryServices& repository() = 0;  // to change it through
  // What it changes so far; valid as long as the draft is, and until it is asked again.
  virtual std::vector<Difference> changes() = 0;
  virtual void save() = 0;  // Failure(REFUSED) when that cannot be done, and nothing is changed
};

}  // namespace cli
