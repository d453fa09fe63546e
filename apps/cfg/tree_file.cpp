#include "tree_file.h"

#include "document.h"

namespace cli {

TreeFile::TreeFile(const std::string& file)
    : CFG_FileRepositoryBase(RWWString::fromUTF8(file)), m_name(file) {}

void TreeFile::start_empty() { hold(std::make_unique<CFG_SubTree>(RWCString("halvoria"))); }

int TreeFile::Connect() {
  Document document = read_document(InputFile(m_name));
  if (document.form != Form::XML) {
    m_why_read_only =
        document.form == Form::SYNCED ? "is kept by programs for themselves" : "is a byte array";
  } else if (!document.is_whole()) {
    m_why_read_only = "holds only " + document.branches.front() + " and not a whole tree";
  }
  hold(std::move(document.tree));
  return TRUE;
}

void TreeFile::hold(std::unique_ptr<CFG_SubTree> tree) {
  m_sub_tree = std::move(tree);
  m_is_connected = true;
}

}  // namespace cli
