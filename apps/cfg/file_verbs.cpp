// export, import, validate.
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>

#include "activity.h"
#include "change.h"
#include "differences.h"
#include "document.h"
#include "library_log.h"
#include "output_file.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

void export_xml(Session& session, Tree_Node& key, const std::string& path) {
  const std::string& file = session.arguments.file;
  const bool to_output = is_standard(file);
  const Reasons reasons;
  CFG_SubTree tree{Tree_NodePtr(&key)};
  const RWWString name = RWWString::fromUTF8(to_output ? "/dev/stdout" : file);
  const bool is_written =
      session.store().repository().ExportSubTreeToFile(&tree, name, RWCString(path)) ||
      (to_output && session.out.has_lost_reader());
  if (is_written) return;
  const std::string reason = reasons.first();
  throw Failure(REFUSED, reason.empty() ? "cannot write " + file : reason);
}

void export_bytes(Session& session, Tree_Node& key) {
  const std::string bytes = byte_array_of(key, session.arguments.header);
  if (is_standard(session.arguments.file)) {
    session.out.write(bytes);
  } else {
    write_file(session.arguments.file, bytes);
  }
}

}  // namespace

int run_export(Session& session) {
  const Arguments& arguments = session.arguments;
  const bool to_output = is_standard(arguments.file);
  const bool is_bytes = arguments.format == "bytes";
  if (to_output && (arguments.json || arguments.dry_run)) {
    throw Failure(USAGE, "--json and --dry-run need a file to export to");
  }
  if (arguments.header && !is_bytes) throw Failure(USAGE, "--header goes with --format bytes");
  Store& store = session.store();
  const std::string path = store.path(arguments.path);
  Tree_Node& key = store.key(path);
  require_other_file(store, arguments.file);
  const bool is_new = !Sys_File::Exists(RWWString::fromUTF8(arguments.file));

  if (!arguments.dry_run) {
    const Activity activity("writing " + arguments.file);
    is_bytes ? export_bytes(session, key) : export_xml(session, key, path);
  }
  if (to_output) return DONE;

  Counts counts = count_below(&key);
  ++counts.keys;
  if (arguments.json) {
    session.out.json({{"dry_run", arguments.dry_run},
                      {"path", path},
                      {"file", arguments.file},
                      {"is_new", is_new},
                      {"keys", counts.keys},
                      {"values", counts.values}});
  } else if (arguments.dry_run) {
    session.out.line(std::string(is_new ? "would write " : "would replace ") + arguments.file +
                     ": " + counts_text(counts));
  }
  return DONE;
}

namespace {

// The library takes the first name of a path for the root whatever it says; a file with
// another root would land somewhere else than it says.
void require_root(const Store& store, const InputFile& file, const std::string& path) {
  if (first_of(path) == store.root()) return;
  throw Failure(BAD_INPUT, file.shown() + " holds " + path + ", but the root of " + store.name() +
                               " is '" + store.root() + "'");
}

struct ImportMode {
  const char* name;
  CFG_RepositoryServices::CFG_XML_IMPORT_TYPE type;
};
constexpr ImportMode import_modes[] = {
    {"replace", CFG_RepositoryServices::CFG_XML_IMPORT_REPLACE},
    {"overwrite", CFG_RepositoryServices::CFG_XML_IMPORT_OVERWRITE},
    {"no-overwrite", CFG_RepositoryServices::CFG_XML_IMPORT_NO_OVERWRITE},
};

// The library says first what is wrong, and in the end with which record.
void import_values(CFG_RepositoryServices& draft, const InputFile& file, bool overrides) {
  const Reasons reasons;
  if (draft.ImportXMLValueList(file.name(), overrides)) return;
  const std::string what = "cannot import " + file.shown();
  const std::string last = reasons.last();
  const size_t record = last.find(" at item ");
  if (record == last.npos) throw Failure(REFUSED, with_reason(what, reasons));
  const bool is_all = last == reasons.first();
  throw Failure(REFUSED, what + last.substr(record) + (is_all ? "" : ": " + reasons.first()));
}

int import_value_list(Session& session, const InputFile& file) {
  Store& store = session.store();
  const ValueList list = read_value_list(file, store.root());
  if (!list.outside.empty()) require_root(store, file, list.outside);
  const bool overrides = !session.arguments.keep;
  return change_tree(session, {list.common}, "import " + file.shown(),
                     [&](auto& draft) { import_values(draft, file, overrides); });
}

// Where the array has no header, --under says below which key it belongs.
int import_bytes(Session& session, const InputFile& file) {
  const Arguments& arguments = session.arguments;
  Store& store = session.store();
  const Document document = read_document(file);
  std::string parent(parent_of(document.branches.front()));
  CFG_SubTree branch{Tree_NodePtr(document.top())};
  if (!arguments.path.empty()) {
    if (document.form == Form::BYTES_WITH_HEADER) {
      throw Failure(USAGE, "--under is for byte arrays without a header; " + file.shown() +
                               " says that it belongs below " + printable(parent));
    }
    parent = store.path(arguments.path);
    store.key(parent);
  }
  const std::string path = child_of(parent, branch.GetKeyName().str());
  require_root(store, file, path);
  return change_tree(session, {path}, "import " + file.shown(), [&](auto& draft) {
    require("cannot import " + file.shown(), [&] {
      if (arguments.mode == "no-overwrite") {
        return draft.AddMoreInfoToSubTreeWithLongValues(&branch, RWCString(parent));
      }
      return draft.AddOrReplaceSubTreeWithLongValues(&branch, RWCString(parent),
                                                     arguments.mode == "overwrite");
    });
  });
}

void require_format(const InputFile& file, bool is_xml, const std::string& wanted) {
  if (wanted.empty() || (wanted == "xml") == is_xml) return;
  throw Failure(BAD_INPUT,
                file.shown() + (is_xml ? " is no byte array: one begins with two zero bytes"
                                       : " is a byte array and no XML"));
}

}  // namespace

int run_import(Session& session) {
  const Arguments& arguments = session.arguments;
  if (arguments.keep && arguments.mode != "value-list") {
    throw Failure(USAGE, "--keep goes with --mode value-list; see --mode no-overwrite");
  }
  const InputFile file(arguments.file);
  Store& store = session.store();
  const Activity activity("importing " + file.shown());
  const bool is_xml = form_of(file) == Form::XML;
  require_format(file, is_xml, arguments.format);
  if (!is_xml && arguments.mode == "value-list") {
    throw Failure(BAD_INPUT, file.shown() + " is a byte array and no list of values");
  }
  if (arguments.mode == "value-list") return import_value_list(session, file);
  if (!is_xml) return import_bytes(session, file);
  if (!arguments.path.empty()) throw Failure(USAGE, "--under is for byte arrays");

  const std::vector<std::string> paths = read_branch_paths(file);
  for (const std::string& path : paths) require_root(store, file, path);
  const ImportMode* mode = std::begin(import_modes);
  while (mode->name != arguments.mode) ++mode;
  const std::set<std::string> places(paths.begin(), paths.end());
  return change_tree(session, places, "import " + file.shown(), [&](auto& draft) {
    require("cannot import " + file.shown(),
            [&] { return draft.ImportXmlFileWithType(file.name(), mode->type); });
  });
}

int run_validate(Session& session) {
  const InputFile file(session.arguments.file);
  const bool is_json = session.arguments.json;
  Json facts = {{"file", file.shown()}, {"is_valid", true}};
  std::string text;
  try {
    if (session.arguments.value_list) {
      const ValueList list = read_value_list(file, "");
      facts["values"] = list.count;
      text = counts_text({0, list.count});
    } else {
      const Document document = read_document(file);
      Counts counts;
      counts = count_below(document.top());
      ++counts.keys;
      facts["form"] = form_name(document.form);
      facts["branches"] = document.branches;
      facts["keys"] = counts.keys;
      facts["values"] = counts.values;
      text = document.branches.front() +
             (document.branches.size() > 1 ? " and other branches" : "") + ", " +
             counts_text(counts);
    }
  } catch (const Failure& failure) {
    if (!is_json) throw;
    session.out.json({{"file", file.shown()}, {"is_valid", false}, {"fault", failure.text}});
    throw;
  }
  if (is_json) {
    session.out.json(facts);
  } else {
    session.out.line(file.shown() + ": valid, " + text);
  }
  return DONE;
}

}  // namespace cli
