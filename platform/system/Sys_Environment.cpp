#include <system/Sys_Environment.h>

#include <cstdlib>

bool Sys_Environment::Get(const RWCString& name, RWCString& out) {
  const char* value = std::getenv(name.data());
  if (!value) return false;
  out = value;
  return true;
}
