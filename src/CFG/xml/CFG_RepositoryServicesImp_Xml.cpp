// Export to XML files and import from them, for every repository.
#include <CFG/CFG_RepositoryServicesImp.h>

#include <memory>
#include <string_view>
#include <vector>

#include <CFG/CFG_SAXImport.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/paths.h>
#include <CFG/xml/xml_writer.h>
#include <logging/Logger.h>
#include <system/Sys_File.h>
#include <system/Sys_FileName.h>
#include <system/Sys_FileReplacer.h>
#include <tree/Tree_Node.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);

using SubTreePtr = std::unique_ptr<CFG_SubTree>;
using NodesVec = CFG_SAXImport::NodesVec;

// --- export ------------------------------------------------------------------------------------

RWCString full_path(CFG_SubTree* sub_tree) {
  const Tree_NodePtr node = sub_tree ? sub_tree->GetData() : Tree_NodePtr();
  return node ? node->GetFullPath() : RWCString();
}

// The path of the key above a path, as its components.
std::string_view parent_of(std::string_view path) {
  while (!path.empty() && path.back() == '\\') path.remove_suffix(1);
  return cfg::split_path(path).parent;
}

// --- import ------------------------------------------------------------------------------------

bool is_read(int result) {
  return result == 0 || logger.reject(false, "Parser Fail, return NULL\n");
}

// The tree of a document with one branch; `result` is that of reading it.
SubTreePtr only_sub_tree(CFG_SAXImport& import, int result) {
  if (!is_read(result)) return nullptr;
  const int records = import.GetNodesNumIndex(0);
  if (records < 0) {
    return logger.reject_at(LOG_LEVEL_INFORMATION, nullptr,
                            "Fail to get file info from parser, return NULL\n");
  }
  if (import.GetRootPath().isNull()) {
    return logger.reject(nullptr, "Fail to get root path from parser, return NULL\n");
  }
  if (records == 0) logger.info("empty subtree found \n");
  const Tree_NodePtr tree = import.BuildSubTreeIndex(0);
  if (!tree) return logger.reject(nullptr, "BuildSubTree return null, return NULL\n");
  return std::make_unique<CFG_SubTree>(tree);
}

using SubTrees = std::vector<SubTreePtr>;

// The subtrees of a file; none when any of them is wrong.
SubTrees import_branches(CFG_SAXImport& import, const RWWString& file) {
  SubTrees sub_trees;
  for (int i = 0; i < import.GetNumOfVectors(); ++i) {
    if (import.GetRootPathIndex(i).isNull()) {
      return logger.reject(SubTrees(), "Fail to get root path from parser, return NULL\n");
    }
    if (import.GetNodesNumIndex(i) == 0) logger.info("empty sub tree with root only\n");
    const Tree_NodePtr tree = import.BuildSubTreeIndex(i);
    if (!tree) {
      return logger.reject(SubTrees(), "BuildSubTree return null, for %S return FALSE\n", file);
    }
    sub_trees.push_back(std::make_unique<CFG_SubTree>(tree));
  }
  return sub_trees;
}

// From a key down to the first that holds anything but a single key. The names of the keys
// that are left go to `parent_path`.
Tree_NodePtr end_of_chain(Tree_NodePtr key, RWCString& parent_path) {
  for (;;) {
    const Tree_ChildList* children = key->Children();
    if (!children || children->count() != 1 || children->count(Tree_ChildList::KEYS) != 1) {
      return key;
    }
    if (!parent_path.isNull()) parent_path += '\\';
    parent_path += key->NameView();
    key = Tree_NodePtr(children->at(children->next(0)));
  }
}

// At the path that the document says, which was written as it is stored.
int write_imported(CFG_RepositoryServices& repository, CFG_SubTree& sub_tree,
                   CFG_RepositoryServices::CFG_XML_IMPORT_TYPE type) {
  const cfg::stored_paths as_stored;
  const Tree_NodePtr top = sub_tree.GetData();
  RWCString parent_path = cfg::split_path(top->GetVirtualParentPath().str()).parent;
  if (type == CFG_RepositoryServices::CFG_XML_IMPORT_REPLACE) {
    return repository.AddOrReplaceSubTree(&sub_tree, parent_path);
  }
  CFG_SubTree target(end_of_chain(top, parent_path));
  return type == CFG_RepositoryServices::CFG_XML_IMPORT_OVERWRITE
             ? repository.AddOrReplaceSubTreeWithLongValues(&target, parent_path, TRUE)
             : repository.AddMoreInfoToSubTreeWithLongValues(&target, parent_path);
}

// A step of an update, which is rolled back when one fails, whatever the reason.
template <class Step>
bool is_done(const char* op, const Step& step) try {
  return step();
} catch (...) {
  return cfg::answered(logger, false, op);
}

struct DeleteSubTrees {
  void operator()(std::vector<CFG_SubTree*>* sub_trees) const {
    for (CFG_SubTree* sub_tree : *sub_trees) delete sub_tree;
    delete sub_trees;
  }
};

}  // namespace

int CFG_RepositoryServicesImp::ExportPath(const RWCString& path, const RWWString& file) {
  return ExportPathRead(path, file, [this](const RWCString& actual) { return GetSubTree(actual); });
}

int CFG_RepositoryServicesImp::ExportPathRead(
    const RWCString& path, const RWWString& file,
    const std::function<CFG_SubTree*(const RWCString& path)>& read) try {
  constexpr char op[] = "ExportPath";
  logger.trace("%s: Exporting path <%s> to file <%S>\n", op, path, file);
  if (path.isNull()) {
    return logger.reject(FALSE, "%s : _path parameter is empty string, return FALSE\n", op);
  }
  if (file.isNull()) {
    return logger.reject(FALSE, "%s : _file parameter is empty string, return FALSE\n", op);
  }
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  const SubTreePtr sub_tree(read(actual));
  if (!sub_tree) {
    return logger.reject(FALSE, "%s : sub tree at path <%s> does not exist, return FALSE\n", op,
                         actual);
  }
  return WriteCFG_SubTreeToFile(sub_tree.get(), actual, file);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::ExportSubTreeToFile(CFG_SubTree* sub_tree,
                                                   const RWWString& file) try {
  return ExportSubTreeToFile(sub_tree, file, RWCString());
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file,
                                                   const RWCString& root_path) try {
  logger.detail(" Exporting subtree to file <%S>\n", file);
  if (!sub_tree) {
    return logger.reject(FALSE, "sub parameter is NULL, will not export to  %S , return FALSE\n",
                         file);
  }
  if (file.isNull()) {
    return logger.reject(FALSE, "file parameter is empty string, for sub tree %s return FALSE\n",
                         [&] { return sub_tree->GetPath(); });
  }
  return WriteCFG_SubTreeToFile(sub_tree, root_path, file);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::ExportSubTreeVectorToFile(std::vector<CFG_SubTree*>* sub_trees,
                                                         const RWWString& file) try {
  if (!sub_trees) {
    return logger.reject_at(LOG_LEVEL_WARNING, FALSE, "Subtree list to export to  %S is null\n",
                            file);
  }
  if (sub_trees->empty()) {
    return logger.reject_at(LOG_LEVEL_WARNING, FALSE, "Subtree list to export to  %S is empty\n",
                            file);
  }
  if (file.isNull()) return logger.reject(FALSE, "file parameter is empty string return FALSE\n");
  const RWCString root_path = sub_trees->size() == 1 ? full_path(sub_trees->front()) : RWCString();
  return WriteCFG_SubTreeVectorToFile(sub_trees, root_path, file);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::WriteCFG_SubTreeToFile(CFG_SubTree* sub_tree,
                                                      const RWCString& root_path,
                                                      const RWWString& file) try {
  std::vector<CFG_SubTree*> sub_trees{sub_tree};
  return WriteCFG_SubTreeVectorToFile(&sub_trees, root_path, file);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::WriteCFG_SubTreeVectorToFile(std::vector<CFG_SubTree*>* sub_trees,
                                                            const RWCString& root_path,
                                                            const RWWString& file) try {
  if (!sub_trees) {
    return logger.reject_at(LOG_LEVEL_WARNING, FALSE, "Subtree list to export to  %S is null\n",
                            file);
  }
  if (sub_trees->empty()) {
    return logger.reject_at(LOG_LEVEL_WARNING, FALSE, "Subtree list to export to  %S is empty\n",
                            file);
  }
  logger.detail("prepare to expoprt to file %S \n", file);
  Sys_FileReplacer target(file);
  if (!target.is_open()) logger.error("%s\n", target.error());
  cfg::xml_writer writer([&](std::string_view bytes) { return target.write(bytes); });
  bool is_written = true;
  for (CFG_SubTree* sub_tree : *sub_trees) {
    const Tree_NodePtr top = sub_tree ? sub_tree->GetData() : Tree_NodePtr();
    if (!top) return logger.reject(FALSE, "fail to create sub tree vec, return FALSE\n");
    if (top->IsLeaf()) {
      return logger.reject(FALSE, "<%s> is a value and not a key, return FALSE\n",
                           [&] { return top->GetFullPath(); });
    }
    if (!target.is_open()) {
      return logger.reject(FALSE, " failed to create export file <%S>, return FALSE\n", file);
    }
    const RWCString path = sub_trees->size() == 1 ? root_path : full_path(sub_tree);
    is_written = writer.write_branch(*top, parent_of(path));
    if (!is_written) break;
  }
  if (is_written && writer.finish() && target.commit()) return TRUE;
  return logger.reject(FALSE, "failed to write export file <%S>: %s, return FALSE\n", file,
                       writer.fault().empty() ? target.error() : RWCString(writer.fault()));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// Leaves the file open: it is read from the handle that found it there.
bool CFG_RepositoryServicesImp::is_xml_file_exists(const RWWString& file, const char* caller,
                                                   Sys_File& opened) {
  if (opened.open(file)) return true;
  logger.info("Fail to open xml file <%S> for reading , return NULL\n", file);
  logger.error("%s: %s\n", caller, opened.error());
  return logger.reject(false, "xml file does not exist : <%s>, return NULL\n",
                       [&] { return Sys_AbsoluteFileName(Sys_NativeFileName(file)); });
}

CFG_SubTree* CFG_RepositoryServicesImp::ImportXmlFileAsCfgSubTree(const RWWString& file) try {
  logger.trace("Importing file <%S>\n", file);
  Sys_File opened;
  if (!is_xml_file_exists(file, "ImportXmlFileAsCfgSubTree", opened)) return nullptr;
  logger.trace("Start");
  CFG_SAXImport import;
  return only_sub_tree(import, import.Init(opened, 0)).release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_RepositoryServicesImp::ImportXmlBufferAsCfgSubTree(
    const unsigned char* const buffer, unsigned int length) try {
  logger.trace("Start");
  if (!buffer) return logger.reject(nullptr, "buffer parameter is NULL, return NULL\n");
  logger.trace("Start");
  const std::string_view document(reinterpret_cast<const char*>(buffer), length);
  CFG_SAXImport import;
  return only_sub_tree(import, import.InitFromBuffer(document, 0)).release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

std::vector<CFG_SubTree*>* CFG_RepositoryServicesImp::ImportXmlFileAsSubTreeVector(
    const RWWString& file) try {
  logger.trace(" Importing file <%S>\n", file);
  Sys_File opened;
  if (!is_xml_file_exists(file, "ImportXmlFileAsSubTreeVector", opened)) return nullptr;
  CFG_SAXImport import;
  if (!is_read(import.Init(opened, CFG_SAX_MULTI_BRANCH))) return nullptr;
  SubTrees sub_trees = import_branches(import, file);
  if (sub_trees.empty()) return nullptr;
  auto result = std::make_unique<std::vector<CFG_SubTree*>>();
  result->reserve(sub_trees.size());
  for (SubTreePtr& sub_tree : sub_trees) result->push_back(sub_tree.release());
  return result.release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tmr_PtrSortedVector<Tree_NodeInfo>* CFG_RepositoryServicesImp::ImportXMLValueListAsVector(
    const RWWString& file) try {
  constexpr char op[] = "ImportXMLValueListAsVector";
  logger.trace("%s: Importing file <%S>\n", op, file);
  Sys_File opened;
  if (!is_xml_file_exists(file, op, opened)) return nullptr;
  CFG_SAXImport import;
  if (!is_read(import.Init(opened, CFG_SAX_VALUE_LIST))) return nullptr;
  if (import.GetNodesNumIndex(0) <= 0) {
    return logger.reject_at(LOG_LEVEL_INFORMATION, nullptr,
                            "Fail to get file info from parser, return NULL\n");
  }
  return import.TakeOwnershipOfVecIndex(0);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

int CFG_RepositoryServicesImp::ImportXMLValueList(const RWWString& file, int override_values) try {
  constexpr char op[] = "ImportXMLValueList";
  logger.trace("%s: Importing file <%S> override %d\n", op, file, override_values);
  const std::unique_ptr<const NodesVec> records(ImportXMLValueListAsVector(file));
  if (!records || !StartTransactionUpdate()) {
    return logger.reject(FALSE, "%s:  failed Importing file <%S> override %d\n", op, file,
                         override_values);
  }
  size_t updated = 0;
  const Tree_NodeInfo* failed = nullptr;
  for (size_t i = 0; i < records->entries() && !failed; ++i) {
    const Tree_NodeInfo* record = (*records)[i];
    const bool is_put = is_done(op, [&] {
      const RWCString path = record->GetPath();
      if (!override_values && !GetValue(path).isNull()) return true;
      ++updated;
      return SetValue(path, record->GetValue()) != FALSE;
    });
    if (!is_put) failed = record;
  }
  const int ended = EndTransactionUpdate(failed != nullptr);
  if (failed) {
    return logger.reject(FALSE,
                         "%s:  failed Importing file <%S> override %d at item %s  with value %s\n",
                         op, file, override_values, failed->PathView(), failed->ValueView());
  }
  if (!ended) {
    return logger.reject(FALSE, "%s:  failed Importing file <%S> override %d\n", op, file,
                         override_values);
  }
  return logger.reject_at(LOG_LEVEL_INFORMATION, TRUE,
                          "%s:  finished Importing file <%S> override %d item# %Iu updated %Iu \n",
                          op, file, override_values, records->entries(), updated);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::ImportXmlFile(const RWWString& file, int override_values) {
  return ImportXmlFileWithType(
      file, override_values ? CFG_XML_IMPORT_OVERWRITE : CFG_XML_IMPORT_NO_OVERWRITE);
}

int CFG_RepositoryServicesImp::ImportXmlFileWithType(const RWWString& file,
                                                     CFG_XML_IMPORT_TYPE type) try {
  const bool is_known = type >= CFG_XML_IMPORT_REPLACE && type <= CFG_XML_IMPORT_NO_OVERWRITE;
  if (!is_known) {
    logger.error("import type %d unknown,  file %S will not be imported to CFG\n", type, file);
  }
  logger.info("import type %d ,  file %S to be imported to CFG\n", type, file);
  const std::unique_ptr<std::vector<CFG_SubTree*>, DeleteSubTrees> imported(
      ImportXmlFileAsSubTreeVector(file));
  if (!imported || !is_known) return FALSE;
  if (!StartTransactionUpdate()) {
    return logger.reject(FALSE, "import of file %S failed, the update cannot be started\n", file);
  }
  CFG_SubTree* failed = nullptr;
  for (CFG_SubTree* sub_tree : *imported) {
    if (is_done(__func__, [&] { return write_imported(*this, *sub_tree, type) != FALSE; }))
      continue;
    failed = sub_tree;
    break;
  }
  const int ended = EndTransactionUpdate(failed != nullptr);
  if (failed) {
    return logger.reject(FALSE, "import of file %S failed at sub tree %s\n", file,
                         [&] { return full_path(failed); });
  }
  if (!ended) {
    return logger.reject(FALSE, "import of file %S failed, the update cannot be ended\n", file);
  }
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
