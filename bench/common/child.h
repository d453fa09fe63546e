// Work in a process of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Runs the work in a forked process and returns what it returned. The heap that the work
// leaves behind is gone with the process, so that what runs later finds the same state.
// Throws std::runtime_error when the process fails.
std::string in_child(const std::function<std::string()>& work);
std::vector<double> figures_in_child(const std::function<std::vector<double>()>& work);

}  // namespace bench
