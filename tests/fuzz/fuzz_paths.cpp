// Path validation and substitution: any bytes are judged and substituted without a fault,
// and what was written under a path is read under the same path.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <CFG/CFG_SubTree.h>
#include <logging/Tmr_GLog.h>

#include "reach.h"

namespace {

Reach value_set("a path takes a value");
Reach path_refused("a path is refused");
Reach text_put_in("a property is put in");

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  static CFG_SubTree setup("setup");
  static const bool ready = [] {
    setup.InitValidatePathProperties();  // no setting: on
    setup.SetProperty("a", "Alpha\\Beta");
    setup.SetProperty("loop", "<loop>");
    return true;
  }();
  if (!ready) abort();

  const RWCString path(std::string_view(reinterpret_cast<const char*>(data), size));
  const RWCString actual = setup.change_string_with_properties(path);
  RWCString lowered = actual;
  CFG_ServicesImp::tolower(lowered);
  if (lowered != actual) abort();

  const int is_valid = setup.IsValidPath(path, "fuzz");
  CFG_SubTree tree("t");
  const int is_set = tree.SetValue(path, "text");
  if (is_set && (!is_valid || tree.GetValue(path) != "text")) abort();
  if (!is_set && !tree.IsEmpty()) abort();
  value_set(is_set);
  path_refused(!is_valid);
  text_put_in(actual.view().find("alpha\\beta") != std::string_view::npos);
  if (is_set && (!tree.DeleteValue(path) || tree.GetValue(path) != "")) abort();
  return 0;
}
