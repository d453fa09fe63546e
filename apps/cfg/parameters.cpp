#include "parameters.h"

#include <utility/Tmr_CfgINI.h>

#include "failure.h"
#include "library_log.h"

namespace cli {

namespace {

Failure no_tree_chosen(const Tmr_CfgINI& parameters) {
  const std::vector<RWWString> places = parameters.Places();
  if (places.size() == 1) {
    return {UNREACHABLE,
            "HALVORIA_CFG_FILE names " + places.front().toUTF8().str() + ", which does not exist"};
  }
  std::string text =
      "no tree is chosen: give --file TREE.xml, --server HOST:PORT or --params FILE, or set "
      "HALVORIA_CFG_FILE; there "
      "is no parameters file at";
  for (const RWWString& place : places) text += " " + place.toUTF8().str();
  return {UNREACHABLE, text};
}

}  // namespace

ChosenParameters choose_parameters(const std::string& given) {
  const Reasons reasons;
  const auto require_read = [&](bool is_read, const std::string& file) {
    if (is_read) return;
    throw Failure(UNREACHABLE, with_reason("cannot read the parameters file " + file, reasons));
  };
  if (!given.empty()) {
    Tmr_INI parameters;
    require_read(parameters.ReadINIFile(RWWString::fromUTF8(given)), given);
    return {given, CFG_ConnectionParameters::From(parameters)};
  }
  Tmr_CfgINI& parameters = Tmr_CfgINI::Instance();
  const std::string file = parameters.FileName().toUTF8().str();
  if (!parameters.IsInit() && file.empty()) throw no_tree_chosen(parameters);
  require_read(parameters.IsInit(), file);
  return {file, CFG_ConnectionParameters::From(parameters)};
}

}  // namespace cli
