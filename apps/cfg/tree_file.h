// The repository behind --file.
#pragma once

#include <string>
#include <vector>

#include <CFG/CFG_FileRepositoryBase.h>

namespace cli {

// One XML file as a repository. It takes any document, also one that holds pieces of a
// tree, which it shows at their places; only a whole tree can be saved. It asks for no
// host name or address. A file that cannot be read is a Failure.
class TreeFile : public CFG_FileRepositoryBase {
 public:
  explicit TreeFile(const std::string& file);

  // An empty tree for a file that does not exist yet.
  void start_empty();

  int Connect() override;
  RWCString GetServerSyncID() override { return "file"; }

  // The paths of the pieces that the file holds; empty for a whole tree.
  const std::vector<std::string>& pieces() const { return m_pieces; }

 private:
  void hold(std::unique_ptr<CFG_SubTree> tree);

  std::string m_name;
  std::vector<std::string> m_pieces;
};

}  // namespace cli
