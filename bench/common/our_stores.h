// The installation in each place that holds a tree.
#pragma once

#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <common/installation.h>
#include <common/suite.h>

namespace bench {

// A path for a handle is one for a repository without so many bytes.
inline constexpr size_t root_cut = sizeof "halvoria\\" - 1;

// A handle, a repository over the same nodes, and one over a file. Each was read so much that it
// has a path index.
struct our_stores {
  our_stores(const records& all, const scale& s);
  ~our_stores();
  our_stores(const our_stores&) = delete;
  our_stores& operator=(const our_stores&) = delete;

  CFG_SubTree handle;
  CFG_MemoryRepository memory;
  CFG_FileRepository file;

 private:
  const std::string m_file_name;
};

}  // namespace bench
