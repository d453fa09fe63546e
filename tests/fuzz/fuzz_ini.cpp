// Parameters files: any bytes are read or refused without a fault, and what was read is
// there to be asked for.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <logging/Tmr_GLog.h>
#include <utility/Tmr_INI.h>

#include "reach.h"

namespace {

Reach text_read("a text is read");
Reach value_compared("a long value comes back");

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Tmr_INI ini;
  if (!text_read(ini.ReadText(text, "fuzz"))) return 0;

  // A line that the file ends with counts, whatever stands before it, as long as it can
  // be told from that; and it comes back whole, however long it is.
  std::string longer(text);
  longer += "\nlast_line = ";
  std::string value;
  for (const char c : text.substr(0, 4096)) {
    if (static_cast<unsigned char>(c) > ' ' && c != ';' && c != '#') value += c;
  }
  longer += value;
  RWCString read;
  if (!ini.ReadText(longer, "fuzz") || !ini.GetValue("LAST_LINE", read)) abort();
  if (read.view() != value) abort();
  value_compared(value.size() > 100);
  return 0;
}
