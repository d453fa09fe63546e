// The commands of the configuration service: one row each, read by client and service alike.
#pragma once

#include <cstddef>
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

// In the order of the commands. Both ends read it when they are compiled: the form of an answer is
// that of the row, and a handler or an operation that has another does not compile.
namespace table {
using A = Argument;
using C = Command;
using R = Reply;
using E = Effect;
constexpr bool TOKEN = true, COUNTED = true;
// clang-format off
inline constexpr CommandRow ROWS[] = {
    {"CFG_LOCK", C::LOCK, {}, R::SUCCESS_CODE, E::SESSION, !TOKEN, !COUNTED},
    {"CFG_UNLOCK", C::UNLOCK, {}, R::SUCCESS_CODE, E::SESSION, !TOKEN, !COUNTED},
    {"CFG_ROLLBACK", C::ROLLBACK, {}, R::SUCCESS_CODE, E::SESSION, TOKEN, !COUNTED},
    {"CFG_ENABLE_EXTENDED_TIMEOUT", C::ENABLE_EXTENDED_TIMEOUT, {}, R::NOTHING, E::SESSION, !TOKEN, !COUNTED},
    {"CFG_DISABLE_EXTENDED_TIMEOUT", C::DISABLE_EXTENDED_TIMEOUT, {}, R::NOTHING, E::SESSION, !TOKEN, !COUNTED},
    {"CFG_SET_VALUE", C::SET_VALUE, {A::PATH, A::VALUE}, R::SUCCESS_CODE, E::CHANGES, TOKEN, !COUNTED},
    {"CFG_DEL_VAL", C::DEL_VAL, {A::PATH}, R::SUCCESS_CODE, E::CHANGES, TOKEN, !COUNTED},
    {"CFG_DEL_SUB", C::DEL_SUB, {A::PATH}, R::SUCCESS_CODE, E::CHANGES, TOKEN, !COUNTED},
    {"CFG_WRITE_SUB", C::WRITE_SUB, {A::SUBTREE, A::PATH}, R::SUCCESS_CODE, E::CHANGES, TOKEN, COUNTED},
    {"CFG_GET_VAL", C::GET_VAL, {A::PATH}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_VAL_INX", C::GET_VAL_INX, {A::PATH, A::INDEX}, R::STRING, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_VAL_NAME", C::GET_VAL_NAME, {A::PATH, A::INDEX}, R::STRING, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_VAL_NUM", C::GET_VAL_NUM, {A::PATH}, R::NUMBER, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_NUM", C::GET_SUB_NUM, {A::PATH}, R::NUMBER, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_ENTRIES_COUNT", C::GET_SUB_ENTRIES_COUNT, {A::PATH}, R::NUMBER, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_EXISTS", C::GET_SUB_EXISTS, {A::PATH}, R::SUCCESS_CODE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_PATHS", C::GET_SUB_PATHS, {A::PATH}, R::LIST, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_TREE_VALUES", C::GET_SUB_TREE_VALUES, {A::PATH}, R::PATH_VALUES, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_INX", C::GET_SUB_INX, {A::PATH, A::INDEX}, R::SUBTREE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_MERGE", C::GET_SUB_MERGE, {A::PATH, A::RULES, A::MERGE}, R::SUBTREE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_TREE_ONLY_WITH_VALUES", C::GET_SUB_TREE_ONLY_WITH_VALUES, {A::PATH, A::RULES, A::MERGE}, R::SUBTREE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_LONG_VALUE", C::GET_SUB_LONG_VALUE, {A::PATH}, R::SUBTREE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_LONG_VALUE_WILDCARD", C::GET_SUB_LONG_VALUE_WILDCARD, {A::PATH}, R::SUBTREE, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_WITH_VALUE_PRECENT_WILDCARD", C::GET_SUB_WITH_VALUE_PRECENT_WILDCARD, {A::PATH}, R::SUBTREE, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_SEQ", C::GET_SUB_SEQ, {A::PATH, A::SEQ_NUMBER, A::COMPRESSED}, R::TREE, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_DEL_SEQ", C::GET_SUB_DEL_SEQ, {A::PATH, A::SEQ_NUMBER, A::COMPRESSED}, R::TREE, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_VALUE_BY_SEARCH_RULE", C::GET_VALUE_BY_SEARCH_RULE, {A::VALUE_NAME, A::RULES}, R::FOUND_VALUE, E::READS, !TOKEN, COUNTED},
    {"CFG_FILL_PATH", C::FILL_PATH, {A::PATH}, R::LIST, E::READS, !TOKEN, COUNTED},
    {"CFG_FILL_PATH_NAME_VALUE", C::FILL_PATH_NAME_VALUE, {A::PATH, A::VALUE_NAME, A::VALUE}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_NODE_NAME", C::GET_NODE_NAME, {A::PATH}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_NODE_NAME_BY_IP", C::GET_NODE_NAME_BY_IP, {A::PATH}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_SERV_NODE_NAME", C::SERV_NODE_NAME, {}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_MAX_SEQ", C::GET_MAX_SEQ, {}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_MAX_SEQ_PATH", C::GET_MAX_SEQ_PATH, {A::PATH}, R::STRING, E::READS, !TOKEN, !COUNTED},
    {"CFG_GET_DEL_MIN_SEQ", C::GET_DEL_MIN_SEQ, {}, R::STRING, E::READS, !TOKEN, COUNTED},
    {"CFG_GET_DB_DATETIME", C::GET_DB_DATETIME, {}, R::STRING, E::READS, !TOKEN, !COUNTED},
    {"GET_SERVER_SYNC_ID", C::GET_SERVER_SYNC_ID, {}, R::STRING, E::READS, !TOKEN, !COUNTED},
};
// clang-format on
constexpr bool is_in_order() {
  for (int i = 0; i < COMMAND_COUNT; ++i) {
    if (static_cast<int>(ROWS[i].command) != i) return false;
  }
  return sizeof(ROWS) / sizeof(*ROWS) == COMMAND_COUNT;
}
static_assert(is_in_order());
}  // namespace table
using table::ROWS;

constexpr const CommandRow& row_of(Command command) { return ROWS[static_cast<size_t>(command)]; }
// Null when there is no such command.
HALVORIA_API const CommandRow* find_command(std::string_view name);

}  // namespace cfg::protocol
