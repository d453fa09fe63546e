// Answers of many fields: lists, and trees that come in chunks.
#include <utility>
#include <vector>

#include <CFG/CFG_Conn_ClientHelper.h>
#include <CFG/CFG_Connector.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/outermost_removals.h>
#include <CFG/detail/tree_builder.h>
#include <CFG/remote/chunk_records.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>
#include <tree/Tree_NodeInfo.h>

using namespace cfg::protocol;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Connector", CFG_SERVICE_ID / 10000);
constexpr long kTooManyPaths = 500000;

// Calls `read` as often as the answer says; it allocates nothing before there is something. An
// answer without a field means that nothing was found.
template <class Read>
bool read_counted(CFG_Conn_ClientHelper& helper, Read read) {
  if (helper.IsAtEnd()) return false;
  long count = 0;
  bool is_whole = helper.Read(CFG_FLD_COUNT, count) && count >= 0;
  for (long i = 0; is_whole && i < count; ++i) is_whole = read();
  return is_whole || logger.reject(false, "Failed to get response from server.\n");
}

// False at the end of the stream.
bool read_chunk(CFG_Conn_ClientHelper& helper, std::string_view& chunk) {
  if (helper.ReadView(CFG_FLD_TREE_CHUNK, chunk)) return !chunk.empty();
  return logger.reject_at(LOG_LEVEL_WARNING, false, "Error reading\n");
}

std::string_view first_text(std::string_view chunk) { return chunk.substr(0, chunk.find('\0')); }

}  // namespace

int CFG_Connector::ReadFixedMsg(CFG_Conn_ClientHelper& helper, String_Arr** texts) {
  auto read = std::make_unique<String_Arr>();
  *texts = nullptr;
  const bool is_whole = read_counted(helper, [&] {
    std::string_view text;
    const bool is_there = helper.ReadView(CFG_FLD_RESULT, text);
    if (is_there) read->AddStr(text);
    return is_there;
  });
  if (!is_whole) return -1;
  *texts = read.release();
  return 0;
}

int CFG_Connector::ReadTreePathAndValue(CFG_Conn_ClientHelper& helper,
                                        Tree_PathAndValueArray** values) {
  std::vector<std::pair<RWCString, RWCString>> read;
  *values = nullptr;
  const bool is_whole = read_counted(helper, [&] {
    auto& [path, value] = read.emplace_back();
    return helper.Read(CFG_FLD_RESULT, path) && helper.Read(CFG_FLD_RESULT, value);
  });
  if (!is_whole) return -1;
  auto made = std::make_unique<Tree_PathAndValueArray>(static_cast<int>(read.size()));
  for (size_t i = 0; i < read.size(); ++i) {
    made->SetPV(static_cast<int>(i), read[i].first, read[i].second);
  }
  *values = made.release();
  return 0;
}

// Records go from the connection's buffer straight into the tree.
Tree_NodePtr CFG_Connector::GetQueryTreePaths(CFG_Conn_ClientHelper& helper, RWCString& tree_path,
                                              bool) {
  if (!helper.HasAnswer("failed getting servers response\n")) return Tree_NodePtr();
  if (!helper.Read(CFG_FLD_PATH, tree_path)) {
    cfg::failure_watch::note();
    return logger.reject(Tree_NodePtr(), "Got empty response - which indicate error in server\n");
  }
  std::string_view chunk, path, value;
  if (!read_chunk(helper, chunk)) return Tree_NodePtr();

  cfg::tree_builder builder(tree_path);
  cfg::outermost_removals::Filter removals;
  long count = 0;
  bool has_more = true;
  while (has_more) {
    cfg::chunk_records records(chunk);
    while (records.next(path, value)) {
      if (count++ == 0 && path == Tree_EmptySubTree_DummyName) {
        logger.trace("GetQueryTreePaths: got tree with no data. path %s", tree_path);
        has_more = false;
        break;
      }
      if (removals.takes(path)) builder.add(path, value);
    }
    if (records.is_cut()) logger.warning("Read Wrong Number of bytes!\n");
    const bool is_next = read_chunk(helper, chunk);
    if (is_next && !has_more) {
      logger.severe(
          "GetQueryTreePaths: got tree with no data - and next element size <%s> is %Iu instead of 0\n",
          first_text(chunk), chunk.size());
    }
    has_more = has_more && is_next;
  }
  // What came before the connection broke, or the service gave up, is no tree.
  if (!helper.IsValid()) return Tree_NodePtr();
  helper.ConsumeForm();
  logger.detail("GetQueryTreePaths: %s - Synchronized %d paths\n", tree_path, count);
  if (count > kTooManyPaths) {
    logger.error(
        "Serious warning: reading tree (%s) returned too many paths (%d). This could lead to serious problems with CFG and even crash under some cases. Are you sure you must to read this tree?\n",
        tree_path, count);
  }
  return builder.tree();
}
