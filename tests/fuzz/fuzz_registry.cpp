// The registry's file: any bytes are read without a fault, what is set in it comes back with any
// name and value, and everything else stays as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <system/Sys_RegistryText.h>

#include "reach.h"

namespace {

Reach line_refused("a line is left out");
Reach value_found("a value that was in the text is found");
Reach value_replaced("a value that was in the text is replaced");
Reach key_kept("a key is added that is not plain letters");
Reach value_removed("a value is removed that was in the text");
Reach key_removed("a key is removed that was in the text");

Sys_RegistryText parsed(std::string_view text) {
  Sys_RegistryText registry;
  registry.parse(text, [](int line, const char* what) {
    line_refused();
    if (line < 1 || !what) abort();
  });
  return registry;
}

void expect(const Sys_RegistryText& registry, std::string_view key, std::string_view name,
            const std::string* value) {
  const Sys_RegistryText again = parsed(registry.text());
  for (const Sys_RegistryText* const one : {&registry, &again}) {
    const std::string* const found = one->find(key, name);
    if (!found != !value || (value && *found != *value)) abort();
  }
}

}  // namespace

// Up to three texts ahead of the first bytes 0xFE are a key, a name and a value.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::string parts[3];
  for (std::string& part : parts) {
    const size_t end = rest.find('\xFE');
    if (end == rest.npos) break;
    part = rest.substr(0, end);
    rest.remove_prefix(end + 1);
  }
  const auto& [key, name, value] = parts;

  Sys_RegistryText registry = parsed(rest);
  if (!Sys_RegistryText::is_key(key)) return 0;
  const std::string before = registry.text();
  const std::string* const found = registry.find(key, name);
  value_found(found != nullptr);
  const bool was_there = value_replaced(found && *found != value);
  const std::string other = name + "\n\xFF other";
  registry.set(key, other, name);
  registry.set(key, name, value);
  expect(registry, key, name, &value);
  expect(registry, key, other, &name);
  key_kept(key.find_first_of("]\\\xC3 =") != key.npos);
  if (!registry.remove(key, other) || registry.remove(key, other)) abort();
  expect(registry, key, other, nullptr);
  if (!registry.remove(key, name)) abort();
  value_removed(was_there);
  expect(registry, key, name, nullptr);
  Sys_RegistryText without = parsed(before);
  key_removed(without.remove_key(key));
  expect(without, key, name, nullptr);
  return 0;
}
