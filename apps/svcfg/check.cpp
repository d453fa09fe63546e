#include "check.h"

#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_SubTree.h>
#include <service/settings.h>
#include <strings/RWWString.h>

namespace svcfg {

namespace {

bool save(CFG_DBRepository& repository, CFG_SubTree* sound, const std::vector<std::string>& damage,
          const std::string& file, std::string& fault) {
  if (!sound || !repository.ExportSubTreeToFile(sound, RWWString::fromUTF8(file.c_str()))) {
    fault = sound ? "cannot write " + file : "nothing is sound";
    return false;
  }
  std::ofstream places(file + ".damage");
  for (const std::string& place : damage) places << place << "\n";
  if (!places.flush()) fault = "cannot write " + file + ".damage";
  return fault.empty();
}

}  // namespace

bool check(const std::string& store, const std::string& user, const std::string& salvage,
           std::string& fault) {
  CFG_DBRepository repository{RWCString(store), RWCString(user)};
  if (!repository.Connect()) {
    fault = "cannot open the store " + service::without_password(store);
    return false;
  }
  std::vector<std::string> damage;
  const std::unique_ptr<CFG_SubTree> sound(repository.Salvage(damage));
  std::string reason;
  const bool is_sound = repository.CheckIntegrity(reason) && damage.empty();
  if (!is_sound && damage.empty()) damage.push_back(reason);
  for (const std::string& place : damage) std::printf("%s\n", place.c_str());
  const int entries = sound ? sound->GetSubTreeEntriesCount("") : 0;
  std::printf("%d entries below the root are sound%s\n", entries,
              is_sound ? ", and nothing is wrong" : "");
  if (!salvage.empty() && !save(repository, sound.get(), damage, salvage, fault)) return false;
  return is_sound;
}

}  // namespace svcfg
