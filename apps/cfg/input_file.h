// Files that the command reads.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <strings/RWWString.h>

namespace cli {

// An argument that can be a path too names a file when it is "-", or holds no backslash and
// there is a file of that name.
bool names_file(const std::string& argument);

// A file given as an argument; "-" is standard input. It can be read any number of times
// by its name: what comes through a pipe is kept in a temporary file meanwhile.
class InputFile {
 public:
  // A file that cannot be opened is a Failure.
  explicit InputFile(const std::string& argument);

  const RWWString& name() const { return m_name; }      // to open it by
  const std::string& shown() const { return m_shown; }  // as messages call it
  uint64_t size() const;
  std::string bytes() const;

 private:
  void keep(int descriptor);

  RWWString m_name;
  std::string m_shown;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_kept{nullptr, &std::fclose};
};

}  // namespace cli
