#include "input_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <system/Sys_File.h>

#include "failure.h"

namespace cli {

bool names_file(const std::string& argument) {
  if (argument == "-") return true;
  return argument.find('\\') == argument.npos && Sys_File::Exists(RWWString::fromUTF8(argument));
}

InputFile::InputFile(const std::string& argument)
    : m_name(RWWString::fromUTF8(argument)), m_shown(argument) {
  if (argument == "-") {
    m_shown = "standard input";
    keep(STDIN_FILENO);
    return;
  }
  Sys_File file;
  if (!file.open(m_name)) throw Failure(BAD_INPUT, file.error().str());
  if (!file.is_regular()) keep(file.descriptor());
}

void InputFile::keep(int descriptor) {
  const auto fail = [this](const char* what) {
    throw Failure(BAD_INPUT, std::string(what) + " " + m_shown + ": " + std::strerror(errno));
  };
  m_kept.reset(std::tmpfile());
  if (!m_kept) fail("cannot make a temporary file for");
  char piece[64 * 1024];
  while (true) {
    const ssize_t count = ::read(descriptor, piece, sizeof piece);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot read");
    if (count == 0) break;
    if (std::fwrite(piece, 1, static_cast<size_t>(count), m_kept.get()) != size_t(count)) {
      fail("cannot keep");
    }
  }
  if (std::fflush(m_kept.get()) != 0) fail("cannot keep");
  m_name = RWWString::fromUTF8("/proc/self/fd/" + std::to_string(fileno(m_kept.get())));
}

uint64_t InputFile::size() const {
  Sys_File file;
  if (!file.open(m_name)) throw Failure(BAD_INPUT, file.error().str());
  return file.size();
}

std::string InputFile::bytes() const {
  constexpr size_t MAX_BYTES = size_t{1} << 30;
  std::string bytes;
  RWCString error;
  if (!Sys_File::ReadWhole(m_name, bytes, MAX_BYTES, error)) {
    throw Failure(BAD_INPUT, error.str());
  }
  return bytes;
}

}  // namespace cli
