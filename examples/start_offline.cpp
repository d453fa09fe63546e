// Starts from local files, whether or not the service is there.
//   start_offline PARAMETERS-FILE USER PATH
#include <CFG/CFG_Factory.h>
#include <tree/String_Arr.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  // Returns as soon as there is a tree: that of the files, when the service does not answer.
  CFG_RepositoryServices* cfg = CFG_Factory::GetRepositoryServices(argv[1]);
  if (!cfg) return 5;
  const RWCString user = argv[2], path = argv[3];
  std::printf("%s is '%s'\n", path.data(), cfg->GetValue(path).data());
  // "current", "loading", or "stale since 2026-11-24 08:00:00Z"
  const RWCString state = cfg->GetProperty("HALVORIA_SYNC_STATE");
  std::printf("the tree is %s\n", state.data());

  cfg->SetProperty("CurrUser", user);  // returns when the user's branch is there
  const RWCString layout = cfg->GetValue("halvoria\\users\\" + user + "\\viewer\\layout");
  std::printf("%s works with '%s'\n", user.data(), layout.data());

  String_Arr branches;
  branches.AddStr("halvoria\\system");
  cfg->SynchronizeSubTree(&branches, "");  // the second text: what is not to be touched
  ShutdownRepositoryServices();
  return 0;
}
