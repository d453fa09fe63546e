#include <CFG/CFG_FileRepository.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/held_tree.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_FileRepository", 502);
}

CFG_FileRepository::CFG_FileRepository(RWWString file) : CFG_FileRepositoryBase(std::move(file)) {}

int CFG_FileRepository::Connect() {
  logger.trace("Start Connect()\n");
  const RecursiveThreadMutexWrapper::WriteGuard guard(m_connection_lock);
  if (m_is_connected) {
    return logger.reject_at(LOG_LEVEL_TRACE, TRUE, "Connect() : already connected\n");
  }
  m_sub_tree.reset(ImportXmlFileAsCfgSubTree(m_file));
  if (!m_sub_tree) {
    return logger.reject(FALSE, "Connect() : Fail to get CFG_SubTree from xml_file\n");
  }
  logger.trace("Connect() : Succeed to get CFG_SubTree from xml_file\n");
  m_sub_tree->GetData()->SetVirtualParentPath("");
  m_is_connected = true;
  return TRUE;
}

RWCString CFG_FileRepository::GetServerSyncID() { return "file"; }

std::string_view CFG_FileRepository::TextAt(const RWCString& path) {
  return cfg::held_tree(m_sub_tree.get()).text(path);
}
