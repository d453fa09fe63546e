// Parameters files.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>
#include <thread/ForkHandler.h>

// The parameters of one file of `name = value` lines:
//   - Names are found in any case; of several lines with one name the last one counts.
//   - Blanks around name and value do not belong to them. A ':' serves as '=' too.
//   - A ';' or '#' begins a comment at the start of a line or after a blank or tab; anywhere
//     else, as in "Server=x;Database=y", it belongs to the value. There is no quoting.
//   - [sections] are allowed and without meaning. A line may be as long as the file.
//   - Lines end in LF, CR LF or CR; a UTF-8 byte-order mark at the start is skipped.
// A line that is nothing of this is logged (4) with its file and number and left out. A file
// that cannot be read, is above MAX_BYTES or holds control characters is refused as a whole.
// Any thread may call any operation.
class HALVORIA_API Tmr_INI {
 public:
  static constexpr size_t MAX_BYTES = size_t{1} << 20;

  Tmr_INI() = default;
  Tmr_INI(const Tmr_INI&) = delete;
  Tmr_INI& operator=(const Tmr_INI&) = delete;

  // Takes the parameters of the file in place of those held before. On failure false, the
  // reason logged (3), and everything held stays.
  bool ReadINIFile(const RWCString& file);  // in UTF-8
  bool ReadINIFile(const RWWString& file);
  // The same from a text; `name` is what messages call it.
  bool ReadText(std::string_view text, const RWCString& name);

  bool IsInit() const;  // a file or text has been read

  // Copies the value to `value` and returns true; leaves `value` alone when there is none.
  bool GetValue(const RWCString& key, RWCString& value) const;

  // The names of all parameters, in lower case and in no order.
  std::vector<std::string> Names() const;

  // Sets a value in memory; with `replace` false only where there is none. True when it was set.
  bool SetValue(const RWCString& key, const RWCString& value, bool replace);

 private:
  using Values = std::unordered_map<std::string, RWCString>;  // names in lower case

  mutable ForkMutex m_mutex{ForkHandler::VALUES};
  Values m_values THREADAPI_GUARDED_BY(m_mutex);
  bool m_is_init THREADAPI_GUARDED_BY(m_mutex) = false;
};
