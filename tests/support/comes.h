// What other threads and processes bring about.
#pragma once

#include <chrono>
#include <thread>

// Whether it comes to hold within a minute.
template <class Condition>
bool comes(Condition condition) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
