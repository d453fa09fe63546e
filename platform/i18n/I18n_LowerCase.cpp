#include <i18n/I18n_LowerCase.h>

#include <unicode/ucasemap.h>

#include <algorithm>
#include <string>

#include <i18n/I18n_Runs.h>

namespace {

// Opened once and kept: opening costs more than most texts. Without a locale and only
// read, so all threads share it.
const UCaseMap* root_case_map() {
  static const UCaseMap* const map = [] {
    UErrorCode status = U_ZERO_ERROR;
    return ucasemap_open("", 0, &status);
  }();
  return map;
}

void append_lower(std::string& out, std::string_view run) {
  const size_t begin = out.size();
  const auto length = static_cast<int32_t>(run.size());
  // Lower case is rarely longer; when it is, the first attempt says how long.
  int32_t room = length;
  for (int attempt = 0; attempt < 2; ++attempt) {
    out.resize(begin + static_cast<size_t>(room));
    UErrorCode status = U_ZERO_ERROR;
    const int32_t used = ucasemap_utf8ToLower(root_case_map(), out.data() + begin, room, run.data(),
                                              length, &status);
    if (U_SUCCESS(status)) return out.resize(begin + static_cast<size_t>(used));
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    room = used;
  }
  out.resize(begin);
  out.append(run);  // out of memory inside ICU: rather unchanged than lost
}

}  // namespace

RWCString I18n_LowerCase(std::string_view text) {
  std::string out;
  I18n_ForEachRun(
      text, [&](std::string_view run) { append_lower(out, run); },
      [&](char byte) { out.push_back(byte); });
  return out;
}
