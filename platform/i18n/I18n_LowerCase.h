// Lower-casing of names beyond ASCII.
#pragma once

#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// The text in lower case by Unicode's rules, the same in every locale (I becomes i, also
// on a Turkish machine). A sigma at the end of a word becomes its final form; the length
// may change. A byte that is not UTF-8 stays as it is and ends a word. Any thread.
HALVORIA_API RWCString I18n_LowerCase(std::string_view text);
