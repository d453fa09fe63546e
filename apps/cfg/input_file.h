// Files that the command reads.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <strings/RWWString.h>

namespace cli {

// A file given as an argument; "-" is standard input. It can be read any number of times
// by its name: what comes through a pipe is kept in a temporary file meanwhile.
class InputFile {
 public:
  // A file that cannot be opened is a Failure.
  explicit InputFile(const std::string& argument);

  const RWWString& name() const { return m_name; }      // to open it by
  const std::string& shown() const { return m_shown; }  // as messages call it
  std::string bytes() const;

 private:
  void keep(int descriptor);

  RWWString m_name;
  std::string m_shown;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_kept{nullptr, &std::fclose};
};

}  // namespace cli
