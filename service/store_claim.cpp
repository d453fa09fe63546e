#include "store_claim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

#include <logging/Logger.h>
#include <system/Sys_Process.h>

namespace service {

namespace {

constexpr Log_Logger logger("service/store_claim", 508);

std::string now() {
  const std::time_t seconds = std::time(nullptr);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

std::string this_process() {
  return "process " + std::to_string(getpid()) + " on " + Sys_ComputerName().str();
}

std::string text_of(int descriptor) {
  char text[512];
  const ssize_t size = pread(descriptor, text, sizeof text, 0);
  std::string who(text, size > 0 ? static_cast<size_t>(size) : 0);
  while (!who.empty() && who.back() == '\n') who.pop_back();
  return who.empty() ? "a process that does not say which" : who;
}

}  // namespace

// One file has one claim, whatever names lead to it.
bool StoreClaim::take(const std::string& store_file, std::string& reason) {
  std::error_code error;
  const auto actual = std::filesystem::weakly_canonical(store_file, error);
  const std::string file = (error ? store_file : actual.string()) + "-service";
  m_descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
  if (m_descriptor < 0 && (errno == ENOENT || errno == ENOTDIR)) return true;  // nor is the store
  if (m_descriptor < 0) {
    reason = "cannot open " + file + ": " + std::strerror(errno);
    return false;
  }
  if (flock(m_descriptor, LOCK_EX | LOCK_NB) == 0) {
    write(this_process() + " since " + now() + ", not listening yet\n");
    return true;
  }
  if (errno != EWOULDBLOCK) {
    logger.warning("%s cannot be locked (%s): nothing keeps a second service off the store\n", file,
                   std::strerror(errno));
    return true;
  }
  reason = "another service serves " + store_file + ": " + text_of(m_descriptor);
  ::close(std::exchange(m_descriptor, -1));
  return false;
}

void StoreClaim::tell(const std::string& address, int port) {
  write(this_process() + ", listening on " + address + " port " + std::to_string(port) + " since " +
        now() + "\n");
}

// The file stays: who waits for its name could lock one that is gone.
void StoreClaim::give_back() {
  if (m_descriptor < 0) return;
  write("");
  ::close(std::exchange(m_descriptor, -1));
}

void StoreClaim::write(const std::string& text) {
  if (m_descriptor < 0) return;
  const bool is_written =
      ftruncate(m_descriptor, 0) == 0 &&
      pwrite(m_descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
  if (!is_written) logger.warning("who serves the store cannot be written beside it\n");
}

}  // namespace service
