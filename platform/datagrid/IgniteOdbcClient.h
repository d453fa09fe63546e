// Trees that processes share in the datagrid, as one that reads or changes the repository sees
// them.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>

#include <datagrid/CFG_CacheData.h>
#include <strings/Export.h>
#include <strings/RWCString.h>

// Reads what a feeder keeps in the grid (Grid_Records.h), and marks what was changed in the
// repository: from then on the grid has no entry there, until the feeder has read the repository
// again. Nothing of what a client writes is stored, so that one that is slow puts no old value
// back.
//
// Any thread: as many connections as threads that ask at the same time, of which some are kept. An
// operation waits no longer than the time-out of the connection string for each answer, and takes
// no more memory than a megabyte for a value and 32 for a subtree; larger ones count as absent.
// Connections that are made later go to the server that Connect found, and fail when it has begun
// anew since. A child of a fork has connections of its own. Nothing throws.
class HALVORIA_API IgniteOdbcClient {
 public:
  IgniteOdbcClient();
  IgniteOdbcClient(const IgniteOdbcClient&) = delete;
  IgniteOdbcClient& operator=(const IgniteOdbcClient&) = delete;
  ~IgniteOdbcClient();

  // As Grid_Place reads it (Grid_Open.h). False when there is no connection, with the reason in the
  // log. Once, before all else.
  bool Connect(std::string& connection);

  // `ok` becomes false when the grid failed; then, and when it has no entry, there is no record.
  std::shared_ptr<CFG_CacheData> GetValue(const RWCString& path, bool& ok);
  // With the full paths of all that is below the key and their values, keys before what is below
  // them, the values of keys empty.
  std::shared_ptr<CFG_CacheData> GetSubTree(const RWCString& path,
                                            std::list<std::pair<RWCString, RWCString>>& values,
                                            bool& ok);
  // These mark the path, the last one with all that is below. False when the grid failed.
  bool SetValue(const RWCString& path, const RWCString& value);
  bool DeleteValue(const RWCString& path);
  bool UpdateSubTree(const RWCString& path);

 private:
  struct Inside;
  const std::unique_ptr<Inside> m_inside;
};
