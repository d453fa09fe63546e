// Finding files by their names.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

struct Sys_FoundFile {
  RWWString name;  // without the folder
  uint64_t size;
  std::chrono::system_clock::time_point written;  // last
};

// The files in a folder whose names have the form of `pattern`, in which a '*' stands for any
// letters or none and nothing else has a meaning; ordered by name. Upper and lower case differ. A
// name is taken as it is, whatever bytes it has: what is no UTF-8 comes back as
// RWWString::fromUTF8 says and leads to the file again. Folders, links and devices are left
// out, and what goes while we look. False, with what was tried, the name and the system's reason in
// `error` and `found` left alone, when the folder cannot be read. Any thread.
HALVORIA_API bool Sys_FindFiles(const RWWString& folder, const RWWString& pattern,
                                std::vector<Sys_FoundFile>& found, RWCString& error);
