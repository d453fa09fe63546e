// A look at everything in a store, and what can be saved of it.
#pragma once

#include <string>

namespace svcfg {

// Says on standard output what is wrong, place by place. Writes what is sound to the XML file
// `salvage` and the places to the file `salvage`.damage, unless that name is empty. Whether
// everything is sound; `fault` when it cannot be looked at, or not saved.
bool check(const std::string& store, const std::string& user, const std::string& salvage,
           std::string& fault);

}  // namespace svcfg
