#include <CFG/CFG_Factory.h>

#include <iostream>

int main(int argc, char** argv) {
  CFG_RepositoryServices* cfg =
      argc > 1 ? CFG_Factory::GetRepositoryServices(argv[1]) : CFG_Factory::GetRepositoryServices();
  if (!cfg) return 1;
  std::cout << cfg->GetValue("halvoria\\system\\nodes\\pacs01\\properties\\inet_address", "none")
            << "\n";
  ShutdownRepositoryServices();
}
