// A process that is killed at any of its system calls while it saves a synced file.
#include <gtest/gtest.h>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <optional>

#include <CFG/sync/synced_file.h>
#include <support/temporary_folder.h>

namespace {

using cfg::synced_file;

std::string header_of(const char* sequence) {
  cfg::Synced_Cfg_File_Header header;
  header.sequence = sequence;
  const char* misfit = nullptr;
  return header.bytes(misfit);
}

// What the next start has: the newest generation, else the one before; empty when neither is whole.
std::string loaded(const synced_file& file) {
  for (const auto generation : {synced_file::NEWEST, synced_file::OLD}) {
    synced_file::Reader reader(file, generation);
    std::unique_ptr<char[]> data;
    if (!reader.open() || !reader.read_data(data)) continue;
    return reader.header().sequence.str() + ":" + std::string(data.get(), reader.data_length());
  }
  return "";
}

// Runs it in a child that is killed at its call to the system of that number, before or after the
// call is carried out. True when it was killed, false when it had come to its end before; nothing
// where children may not be traced.
std::optional<bool> is_killed_at(int call, const std::function<void()>& run) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(99);
    raise(SIGSTOP);
    run();
    _exit(0);
  }
  int status = 0;
  for (int stops = -1; waitpid(child, &status, 0) == child; ++stops) {
    if (WIFEXITED(status)) {
      if (WEXITSTATUS(status) == 99) return std::nullopt;
      return false;
    }
    if (WIFSIGNALED(status)) return true;
    if (stops == call) {
      kill(child, SIGKILL);
    } else {
      ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
  }
  return std::nullopt;
}

TEST(SyncedFileKills, LeaveAWholeGenerationAtEveryStep) {
  const TemporaryFolder folder;
  const synced_file file(folder.file("tree.cfg"));
  const std::string one(5000, '1'), two(300'000, '2'), three = "three";
  const auto put_two_generations = [&] {
    std::filesystem::remove_all(folder.path());
    std::filesystem::create_directory(folder.path());
    RWCString error;
    ASSERT_TRUE(file.save(header_of("1"), one, error)) << error;
    ASSERT_TRUE(file.save(header_of("2"), two, error)) << error;
  };
  const auto save = [&] {
    RWCString error;
    static_cast<void>(file.save(header_of("3"), three, error));
  };
  const auto save_header = [&] {
    synced_file::Reader reader(file, synced_file::NEWEST);
    std::unique_ptr<char[]> data;
    RWCString error;
    if (!reader.open() || !reader.read_data(data)) return;
    static_cast<void>(
        file.save_header(header_of("4"), reader.identity(), reader.header_bytes(), error));
  };
  const struct {
    const char* what;
    std::function<void()> run;
    std::string before, after;
  } rows[] = {{"save", save, "2:" + two, "3:" + three},
              {"save_header", save_header, "2:" + two, "4:" + two}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    int steps = 0;
    bool was_old = false, was_new = false;
    for (;; ++steps) {
      SCOPED_TRACE(steps);
      put_two_generations();
      const auto is_killed = is_killed_at(steps, row.run);
      if (!is_killed) GTEST_SKIP() << "children may not be traced here";
      const std::string there = loaded(file);
      was_old = was_old || there == row.before;
      was_new = was_new || there == row.after;
      ASSERT_TRUE(there == row.before || there == row.after) << there.substr(0, 20);
      if (!*is_killed) break;
      // Whoever comes next saves over it.
      RWCString error;
      ASSERT_TRUE(file.save(header_of("5"), one, error)) << error;
      ASSERT_EQ(loaded(file), "5:" + one);
    }
    EXPECT_TRUE(was_old && was_new);
    EXPECT_GT(steps, 20);
  }
}

}  // namespace
