// The commands of the configuration service: one row each, read by client and service alike.
#pragma once

#include <cstdint>
#include <string_view>

#include <strings/Export.h>

namespace cfg::protocol {

constexpr int CFG_SERVICE_ID = 5020000;
constexpr char SERVICE_NAME[] = "CFG_SERVICE";
constexpr char RESPONSE_PREFIX[] = "CFG_RES_";

enum Field : uint32_t {
  CFG_FLD_USER_NAME = CFG_SERVICE_ID + 2,
  CFG_FLD_APPLICATION,
  CFG_FLD_PATH,
  CFG_FLD_SEQ_NUMBER,  // decimal text
  CFG_FLD_COMPRESSED,
  CFG_FLD_SUBTREE,     // a byte array
  CFG_FLD_TREE_CHUNK,  // records of a path and a value, each ended by a NUL
  CFG_FLD_RESULT,
  CFG_FLD_SUCCESS_CODE,
  CFG_FLD_VALUE,
  CFG_FLD_COUNT,
  CFG_FLD_VALUE_NAME,
  CFG_FLD_MERGE,
  CFG_FLD_INDEX,
  CFG_FLD_NUMBER,
  CFG_FLD_REASON,  // why a change was not done
  CFG_FLD_SECURITY_TOKEN = 1970002,
};

// What stands between the header of a request and its end. RULES is a count and so many paths.
enum class Argument : uint8_t {
  NONE,
  PATH,
  VALUE,
  VALUE_NAME,
  SUBTREE,
  INDEX,
  SEQ_NUMBER,
  COMPRESSED,
  MERGE,
  RULES
};

// What an argument travels in; RULES begin with it.
constexpr Field field_of(Argument argument) {
  switch (argument) {
    case Argument::VALUE:
      return CFG_FLD_VALUE;
    case Argument::VALUE_NAME:
      return CFG_FLD_VALUE_NAME;
    case Argument::SUBTREE:
      return CFG_FLD_SUBTREE;
    case Argument::INDEX:
      return CFG_FLD_INDEX;
    case Argument::SEQ_NUMBER:
      return CFG_FLD_SEQ_NUMBER;
    case Argument::COMPRESSED:
      return CFG_FLD_COMPRESSED;
    case Argument::MERGE:
      return CFG_FLD_MERGE;
    case Argument::RULES:
      return CFG_FLD_COUNT;
    default:
      return CFG_FLD_PATH;
  }
}

enum class Reply : uint8_t {
  NOTHING,  // one-way
  SUCCESS_CODE,
  NUMBER,
  STRING,
  SUBTREE,      // a byte array
  LIST,         // COUNT and so many RESULTs
  PATH_VALUES,  // COUNT and so many pairs of RESULTs
  FOUND_VALUE,  // SUCCESS_CODE, VALUE, PATH
  TREE,         // PATH and TREE_CHUNKs, the last of which is empty
};

// What a command does to the tree; SESSION ones open and end transactions and the like.
enum class Effect : uint8_t { READS, CHANGES, SESSION };

// The order is that of the table.
enum class Command : uint8_t {
  LOCK,
  UNLOCK,
  ROLLBACK,
  ENABLE_EXTENDED_TIMEOUT,
  DISABLE_EXTENDED_TIMEOUT,
  SET_VALUE,
  DEL_VAL,
  DEL_SUB,
  WRITE_SUB,
  GET_VAL,
  GET_VAL_INX,
  GET_VAL_NAME,
  GET_VAL_NUM,
  GET_SUB_NUM,
  GET_SUB_ENTRIES_COUNT,
  GET_SUB_EXISTS,
  GET_SUB_PATHS,
  GET_SUB_TREE_VALUES,
  GET_SUB_INX,
  GET_SUB_MERGE,
  GET_SUB_TREE_ONLY_WITH_VALUES,
  GET_SUB_LONG_VALUE,
  GET_SUB_LONG_VALUE_WILDCARD,
  GET_SUB_WITH_VALUE_PRECENT_WILDCARD,
  GET_SUB_SEQ,
  GET_SUB_DEL_SEQ,
  GET_VALUE_BY_SEARCH_RULE,
  FILL_PATH,
  FILL_PATH_NAME_VALUE,
  GET_NODE_NAME,
  GET_NODE_NAME_BY_IP,
  SERV_NODE_NAME,
  GET_MAX_SEQ,
  GET_MAX_SEQ_PATH,
  GET_DEL_MIN_SEQ,
  GET_DB_DATETIME,
  GET_SERVER_SYNC_ID,
};
constexpr int COMMAND_COUNT = static_cast<int>(Command::GET_SERVER_SYNC_ID) + 1;

struct CommandRow {
  const char* name;
  Command command;
  Argument arguments[3];
  Reply reply;
  Effect effect;
  bool has_token;   // a request carries the security token
  bool is_counted;  // by the request statistics
};

HALVORIA_API const CommandRow& row_of(Command command);
// Null when there is no such command.
HALVORIA_API const CommandRow* find_command(std::string_view name);

}  // namespace cfg::protocol
