// The repository behind --file.
#pragma once

#include <string>
#include <vector>

#include <CFG/CFG_FileRepositoryBase.h>

namespace cli {

// One file as a repository. It takes any document, also one that holds pieces of a tree,
// which it shows at their places, and byte arrays; only a whole tree in XML can be saved. It asks
// for no host name or address. A file that cannot be read is a Failure.
class TreeFile : public CFG_FileRepositoryBase {
 public:
  explicit TreeFile(const std::string& file);

  // An empty tree for a file that does not exist yet.
  void start_empty();

  int Connect() override;
  RWCString GetServerSyncID() override { return "file"; }

  // Why the tree can be read but not changed here; empty when it can.
  const std::string& why_read_only() const { return m_why_read_only; }

 private:
  void hold(std::unique_ptr<CFG_SubTree> tree);

  std::string m_name;
  std::string m_why_read_only;
};

}  // namespace cli
