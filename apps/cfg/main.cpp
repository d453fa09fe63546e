// cfg, the command line of the configuration tree.
#include <clocale>
#include <csignal>
#include <exception>
#include <new>

#include <system/Sys_Process.h>

#include "command_line.h"
#include "failure.h"

namespace {

int run(int argc, char** argv) {
  cli::Output out;
  try {
    const int code = cli::run_command(argc, argv, out);
    out.flush();
    return code;
  } catch (const cli::Failure&) {
    out.flush();  // what came before the failure
    throw;
  }
}

// With less than this left, not even what went wrong can be thrown.
bool has_some_memory() {
  void* const some = ::operator new (size_t{1} << 20, std::nothrow);
  ::operator delete(some);
  return some;
}

}  // namespace

int main(int argc, char** argv) {
  Sys_KeepStandardStreams();
  std::setlocale(LC_CTYPE, "");
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a write that fails
  if (!has_some_memory()) {
    cli::say_memory_ran_out();
    return cli::UNREACHABLE;
  }
  try {
    return run(argc, argv);
  } catch (const cli::Failure& failure) {
    cli::say_failure(failure.text, failure.code);
    return failure.code;
  } catch (const std::bad_alloc&) {
    cli::say_memory_ran_out();
    return cli::UNREACHABLE;
  } catch (const std::exception& error) {
    cli::say_failure(error.what(), cli::UNREACHABLE);
    return cli::UNREACHABLE;
  }
}
