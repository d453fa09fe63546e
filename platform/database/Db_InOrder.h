// A check of tables that are looked up by an enumeration.
#pragma once

#include <cstddef>

// Whether the table has a row for each name up to END, in the order of the names.
template <class Row, size_t COUNT>
constexpr bool Db_IsInOrder(const Row (&table)[COUNT]) {
  using Name = decltype(Row::name);
  for (size_t i = 0; i < COUNT; ++i) {
    if (table[i].name != static_cast<Name>(i)) return false;
  }
  return COUNT == static_cast<size_t>(Name::END);
}
