// The verbs of the command.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "arguments.h"
#include "session.h"

namespace cli {

// An option or, without dashes, a positional argument. `kind` is what the help shows and
// what completion offers: PATH, FILE, or the words to choose from, in small letters and
// joined by bars.
struct Parameter {
  const char* name;
  const char* kind;
  const char* help;
  std::variant<std::string Arguments::*, std::vector<std::string> Arguments::*,
               std::optional<std::string> Arguments::*, bool Arguments::*, int Arguments::*,
               double Arguments::*>
      field;
  bool is_required = false;
};

bool is_choice(std::string_view kind);
std::vector<std::string> choices_of(std::string_view kind);

enum class Effect { READS, WRITES_FILE, WRITES_TREE };

struct Verb {
  const char* name;  // "blob get" is `get` below `blob`
  const char* help;  // empty: not shown
  Effect effect;
  int (*run)(Session&);  // the exit code; failures are thrown
  std::vector<Parameter> parameters;
};

const std::vector<Verb>& verbs();
// The options of all verbs, and of those that write. They may stand before the verb too.
const std::vector<Parameter>& common_parameters();
const std::vector<Parameter>& writing_parameters();

// read_verbs.cpp
int run_get(Session& session);
int run_ls(Session& session);
int run_stat(Session& session);
// tree_verb.cpp
int run_tree(Session& session);
// find_verb.cpp
int run_find(Session& session);
// diff_verb.cpp
int run_diff(Session& session);
// write_verbs.cpp
int run_set(Session& session);
int run_rm(Session& session);
int run_cp(Session& session);
int run_mv(Session& session);
int run_merge(Session& session);
// file_verbs.cpp
int run_export(Session& session);
int run_import(Session& session);
int run_validate(Session& session);
// blob_verbs.cpp
int run_blob_get(Session& session);
int run_blob_put(Session& session);
// ping_verb.cpp
int run_ping(Session& session);
// complete_verb.cpp
int run_complete(Session& session);

}  // namespace cli
