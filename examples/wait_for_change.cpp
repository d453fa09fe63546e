// Waits until another process changes a value, and says what it was and is.
//   wait_for_change PARAMETERS-FILE PATH
#include <CFG/CFG_Factory.h>

#include <chrono>
#include <cstdio>
#include <thread>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  CFG_RepositoryServices* cfg = CFG_Factory::GetRepositoryServices(argv[1]);
  if (!cfg) return 5;
  const RWCString path(argv[2]);
  const RWCString before = cfg->GetValue(path);
  std::printf("client %s reads '%s' and waits\n", argv[2], before.data());
  std::fflush(stdout);
  RWCString now = before;
  for (int tries = 0; now == before && tries < 600; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    now = cfg->GetValue(path);
  }
  std::printf("client %s sees '%s'\n", argv[2], now.data());
  ShutdownRepositoryServices();
  return now == before;
}
