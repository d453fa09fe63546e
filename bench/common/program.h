// Programs that are run from beginning to end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

using words = std::vector<std::string>;  // a program and its arguments

// Starts a program, found by its path or along PATH, whose output goes to a file; its process.
pid_t start_program(const words& command, const std::string& out);
// A copy of this process that ends with the work.
pid_t start_copy(const std::function<void()>& work);
// Processor time of a process that has ended without a fault, in ms.
double processor_time_of(pid_t child);
// Wall time from the start to the end, in ms.
double time_of_program(const words& command, const std::string& out);

}  // namespace bench
