// A repository over one XML file.
#pragma once

#include <CFG/CFG_FileRepositoryBase.h>

// Connect reads the file; changes stay in memory until UnLock replaces the file. What was
// changed after the last UnLock is lost at destruction. Connect may be tried again after
// it has failed.
class HALVORIA_API CFG_FileRepository : public CFG_FileRepositoryBase {
 public:
  explicit CFG_FileRepository(RWWString file);

  int Connect() override;
  RWCString GetServerSyncID() override;

  // What GetValue(path) answers, without a copy; valid until the tree is changed.
  std::string_view TextAt(const RWCString& path);
};
