// What was given on the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Arguments {
  // Which tree, and how to talk about it; the same for all verbs.
  std::string tree_file;                // --file
  std::string server;                   // --server
  std::string params_file;              // --params
  std::vector<std::string> properties;  // name=value
  bool create = false;
  double wait = 30;  // seconds for another writer to finish
  bool json = false;
  bool dry_run = false;
  int verbose = 0;

  // Of single verbs.
  std::string path;  // the first path, as typed
  std::vector<std::string> paths;
  std::string target;       // the second path
  std::string file;         // "-" is standard input or output
  std::string left, right;  // of diff: a path or a file
  std::string value;
  std::optional<std::string> default_value;
  std::string type;
  std::string mode = "overwrite";
  std::optional<std::string> what, exact_value, like_value;
  bool ignore_case = false;
  int depth = -1;  // unlimited
  bool counts = false;
  bool keys_only = false;
  bool long_lines = false;
  bool keep = false;
  bool force = false;
  bool base64 = false;
  bool value_list = false;
  std::string format;   // of a file: "xml", "bytes"; empty: xml to write, what it is to read
  bool header = false;  // of a byte array to be written
  std::string encoding;
  std::string line, word;  // of completion
};

}  // namespace cli
