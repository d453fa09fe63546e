// What a request to the configuration service carries besides its header.
#pragma once

#include <memory>
#include <string_view>

#include <CFG/CFG_Connector.h>

// Refers to what the caller holds while the request is made. The command's row says what it is
// written as.
struct CFG_Connector::Argument {
  Argument(const RWCString& value) : text(value.view()) {}
  Argument(std::string_view value) : text(value) {}
  Argument(long value) : number(value) {}
  Argument(const char** texts, int count) : number(count), rules(texts) {}
  // Given away when it is written.
  Argument(std::unique_ptr<char[]>& array, int length) : number(length), bytes(&array) {}

  std::string_view rule(long i) const {
    return rules[i] ? std::string_view(rules[i]) : std::string_view();
  }

  std::string_view text;
  long number = 0;  // or how many rules, or bytes
  const char** rules = nullptr;
  std::unique_ptr<char[]>* bytes = nullptr;
};
