// One run of the command.
#pragma once

#include <memory>

#include "arguments.h"
#include "output.h"
#include "store.h"

namespace cli {

struct Session {
  const Arguments& arguments;
  Output& out;
  Store::Access access;

  // The chosen tree, opened when it is first asked for.
  Store& store() {
    if (!m_store) m_store = Store::open(arguments, access);
    return *m_store;
  }

  std::unique_ptr<Store> m_store = {};
};

}  // namespace cli
