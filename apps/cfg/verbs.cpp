#include "verbs.h"

namespace cli {

namespace {

using A = Arguments;
constexpr bool REQUIRED = true;

const Parameter some_path = {"path", "PATH", "where to start; the root without it", &A::path};

}  // namespace

bool is_choice(std::string_view kind) {
  return kind.find('|') != kind.npos && kind.front() >= 'a' && kind.front() <= 'z';
}

std::vector<std::string> choices_of(std::string_view kind) {
  std::vector<std::string> choices;
  while (!kind.empty()) {
    choices.emplace_back(kind.substr(0, kind.find('|')));
    kind.remove_prefix(std::min(choices.back().size() + 1, kind.size()));
  }
  return choices;
}

const std::vector<Verb>& verbs() {
  static const std::vector<Verb> table = {
      {"get",
       "print the text of a value",
       Effect::READS,
       run_get,
       {{"path", "PATH", "the value", &A::path, REQUIRED},
        {"--default", "TEXT", "print this when there is no value", &A::default_value},
        {"--type", "int|double|bool", "read the text as programs do", &A::type}}},
      {"ls",
       "list a key; keys end in a backslash",
       Effect::READS,
       run_ls,
       {some_path, {"-l,--long", "", "with texts and counts", &A::long_lines}}},
      {"tree",
       "draw everything below a key",
       Effect::READS,
       run_tree,
       {some_path,
        {"-d,--depth", "N", "only so many levels", &A::depth},
        {"-c,--counts", "", "with the counts of each key", &A::counts},
        {"-k,--keys", "", "without values", &A::keys_only}}},
      {"find",
       "find keys and values by name, pattern or text",
       Effect::READS,
       run_find,
       {{"what", "NAME|PATTERN", "% stands for any text; in a path, of one name", &A::what},
        {"--value", "TEXT", "values with this text", &A::exact_value},
        {"--like", "TEXT", "values like this, % stands for any text", &A::like_value},
        {"-i,--ignore-case", "", "capital and small letters of texts are alike", &A::ignore_case},
        {"--under", "PATH", "only below this key", &A::path},
        {"-l,--long", "", "with the texts", &A::long_lines}}},
      {"stat",
       "tell kind, counts and size of a key, value or file",
       Effect::READS,
       run_stat,
       {{"path", "PATH|FILE", "the key, value or file; the root without it", &A::path}}},
      {"diff",
       "compare two keys, two files, or a key and a file",
       Effect::READS,
       run_diff,
       {{"left", "PATH|FILE", "the one side", &A::left, REQUIRED},
        {"right", "PATH|FILE", "the other side", &A::right, REQUIRED}}},
      {"set",
       "write a value",
       Effect::WRITES_TREE,
       run_set,
       {{"path", "PATH", "the value; missing keys are made", &A::path, REQUIRED},
        {"value", "TEXT", "its text; - reads standard input", &A::value, REQUIRED}}},
      {"rm",
       "remove values, and keys with everything below",
       Effect::WRITES_TREE,
       run_rm,
       {{"path", "PATH", "what to remove", &A::paths, REQUIRED}}},
      {"cp",
       "copy a key or value",
       Effect::WRITES_TREE,
       run_cp,
       {{"source", "PATH", "what to copy", &A::path, REQUIRED},
        {"target", "PATH", "its new path; or below which key, with \\ or / at the end", &A::target,
         REQUIRED},
        {"-f,--force", "", "replace what is there", &A::force}}},
      {"mv",
       "move or rename a key or value",
       Effect::WRITES_TREE,
       run_mv,
       {{"source", "PATH", "what to move", &A::path, REQUIRED},
        {"target", "PATH", "its new path; or below which key, with \\ or / at the end", &A::target,
         REQUIRED},
        {"-f,--force", "", "replace what is there", &A::force}}},
      {"merge",
       "lay a key over another one",
       Effect::WRITES_TREE,
       run_merge,
       {{"source", "PATH", "the key whose texts win", &A::path, REQUIRED},
        {"target", "PATH", "the key that is changed", &A::target, REQUIRED},
        {"--keep", "", "texts of the target win", &A::keep}}},
      {"export",
       "write a key and everything below to a file",
       Effect::WRITES_FILE,
       run_export,
       {{"path", "PATH", "the key", &A::path, REQUIRED},
        {"file", "FILE", "the file; - is standard output", &A::file, REQUIRED},
        {"--format", "xml|bytes", "xml without it", &A::format},
        {"--header", "", "with bytes: begin with the path of the key above", &A::header}}},
      {"import",
       "bring a file into the tree",
       Effect::WRITES_TREE,
       run_import,
       {{"file", "FILE", "the file; - is standard input", &A::file, REQUIRED},
        {"--mode", "replace|overwrite|no-overwrite|value-list",
         "what happens to the keys that are there", &A::mode},
        {"--keep", "", "with value-list: texts of the tree win", &A::keep},
        {"--format", "xml|bytes", "what the file must be; seen from it otherwise", &A::format},
        {"--under", "PATH", "below which key, for bytes without header", &A::path}}},
      {"validate",
       "check a file without importing it",
       Effect::READS,
       run_validate,
       {{"file", "FILE", "the file; - is standard input", &A::file, REQUIRED},
        {"--value-list", "", "it lists values", &A::value_list}}},
      {"blob get",
       "read a blob",
       Effect::WRITES_FILE,
       run_blob_get,
       {{"path", "PATH", "the blob", &A::path, REQUIRED},
        {"file", "FILE", "where to; standard output without it", &A::file}}},
      {"blob put",
       "store a file as a blob",
       Effect::WRITES_TREE,
       run_blob_put,
       {{"path", "PATH", "the blob", &A::path, REQUIRED},
        {"file", "FILE", "the file; - is standard input", &A::file, REQUIRED},
        {"--base64", "", "for bytes that are not text", &A::base64},
        {"--encoding", "NAME", "what to note about the text, as utf-8", &A::encoding}}},
      {"ping", "ask whether the service is there", Effect::READS, run_ping, {}},
      {"__complete",
       "",
       Effect::READS,
       run_complete,
       {{"line", "TEXT", "", &A::line, REQUIRED}, {"word", "TEXT", "", &A::word}}},
  };
  return table;
}

const std::vector<Parameter>& common_parameters() {
  static const std::vector<Parameter> table = {
      {"--file", "FILE", "the tree is this XML file", &A::tree_file},
      {"--server", "HOST:PORT", "the tree is that of the service there", &A::server},
      {"--params", "FILE", "the tree is what this parameters file names", &A::params_file},
      {"--property", "NAME=VALUE", "put VALUE for <NAME> in paths", &A::properties},
      {"--json", "", "print JSON", &A::json},
      {"-v,--verbose", "",
       "show what the library logs, and where `get` found a value; twice: all of it", &A::verbose},
  };
  return table;
}

const std::vector<Parameter>& writing_parameters() {
  static const std::vector<Parameter> table = {
      {"-n,--dry-run", "", "print what would change, write nothing", &A::dry_run},
      {"--create", "", "start a new tree when the --file is missing", &A::create},
      {"--wait", "SECONDS", "for another writer, at most; 30", &A::wait},
  };
  return table;
}

}  // namespace cli
