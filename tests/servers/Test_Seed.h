// The seed of a test that draws at random.
#pragma once

#include <cstdlib>
#include <iostream>
#include <random>

// A new one each run, printed; the one of HALVORIA_TEST_SEED to repeat a run.
inline unsigned test_seed() {
  const char* given = std::getenv("HALVORIA_TEST_SEED");
  const unsigned seed =
      given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
  std::cout << "seed: HALVORIA_TEST_SEED=" << seed << "\n";
  return seed;
}
