// What is logged and where it goes.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <strings/Export.h>

// A plain value. The reading operations take over what is right, leave the rest as it
// was, and add one line to `complaints` for each thing that is wrong: what, where, why.
struct HALVORIA_API Log_Settings {
  enum Output { TO_STDERR, TO_FILE, TO_JSON };

  int level = 4;                     // 0..7
  std::map<int, int> module_levels;  // module 0..1023 -> level, where it is another
  Output output = TO_STDERR;
  // Of TO_FILE and TO_JSON; "{pid}" in it stands for the process id. The file is appended
  // to; at `max_bytes` it is renamed and `max_files` older ones are kept.
  std::string file;
  size_t max_bytes = 10 * 1024 * 1024;
  size_t max_files = 5;
  // So often a second the same line is written, and then how often it came; 0: whenever it comes.
  size_t max_repeats = 10;

  // "5" or "4,502=7,197=3": the general level and those of modules. A level is a digit
  // or one of off severe error warning information detail trace. `where` is for the
  // complaints.
  void ReadLevels(std::string_view text, const std::string& where,
                  std::vector<std::string>& complaints);
  // "stderr", "file:PATH" or "json:PATH".
  void ReadOutput(std::string_view text, const std::string& where,
                  std::vector<std::string>& complaints);
  // Lines `name = value`: level, module.NUMBER, output (stderr, file, json), file,
  // max_bytes, max_files, max_repeats; `;` and `#` begin comments.
  void ReadFile(const std::string& path, std::vector<std::string>& complaints);

  // The file named by HALVORIA_LOG_FILE, then HALVORIA_LOG (levels) and
  // HALVORIA_LOG_OUTPUT, which win over it.
  static Log_Settings FromEnvironment(std::vector<std::string>& complaints);
};
