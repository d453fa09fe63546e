// blob get, blob put.
#include <tree/Tree_Node.h>
#include <utility/Tmr_Base64Utils.h>

#include "change.h"
#include "input_file.h"
#include "library_log.h"
#include "output_file.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

struct Blob {
  std::string bytes;
  std::string encoding;  // as stored: "base64/chunks_num=3"
};

Blob read_blob(Session& session, const std::string& path) {
  Store& store = session.store();
  const Tree_Node& key = store.key(path);
  const Tree_Node* described = key.Child("blobencoding");
  if (!key.Child("chunk0000") && !described) throw Failure(NOT_FOUND, path + " holds no blob");

  Blob blob;
  if (described) blob.encoding = described->GetText();
  if (!key.Child("chunk0000")) return blob;  // of no bytes
  const Reasons reasons;
  char* buffer = nullptr;
  int length = 0;
  const bool is_read = store.repository().ReadBlobToBuffer(path.c_str(), &buffer, length, nullptr);
  const std::unique_ptr<char[]> owner(buffer);
  if (!is_read) throw Failure(BAD_INPUT, with_reason("the blob " + path + " is damaged", reasons));
  blob.bytes.assign(buffer, static_cast<size_t>(length));
  return blob;
}

}  // namespace

int run_blob_get(Session& session) {
  const Arguments& arguments = session.arguments;
  const bool to_output = arguments.file.empty() || is_standard(arguments.file);
  const std::string path = session.store().path(arguments.path);
  require_other_file(session.store(), arguments.file);
  const Blob blob = read_blob(session, path);
  if (!to_output && !arguments.dry_run) write_file(arguments.file, blob.bytes);

  Json facts = {{"dry_run", arguments.dry_run},
                {"path", path},
                {"encoding", blob.encoding},
                {"length", blob.bytes.size()}};
  if (arguments.json) {
    if (to_output) {
      const int length = static_cast<int>(blob.bytes.size());
      facts["base64"] = Tmr_Base64Utils::Encode(blob.bytes.data(), length, false).str();
    } else {
      facts["file"] = arguments.file;
    }
    session.out.json(facts);
  } else if (arguments.dry_run) {
    session.out.line("would write " + std::to_string(blob.bytes.size()) + " bytes to " +
                     (to_output ? "standard output" : arguments.file));
  } else if (to_output) {
    session.out.write(blob.bytes);
  }
  return DONE;
}

int run_blob_put(Session& session) {
  const Arguments& arguments = session.arguments;
  const InputFile file(arguments.file);
  const std::string bytes = file.bytes();
  if (!arguments.base64) {
    const std::string fault = value_fault(bytes);
    if (!fault.empty()) {
      throw Failure(BAD_INPUT, file.shown() + " is not text: " + fault + "; --base64 stores it");
    }
  }
  Store& store = session.store();
  const std::string path = store.writable_path(arguments.path);
  const Tree_Node* there = store.node(path);
  const bool is_value = there && there->IsLeaf();
  if (is_value || path == store.root()) {
    throw Failure(REFUSED,
                  path + " is " + (is_value ? "a value" : "the root") + " and cannot hold a blob");
  }
  return change_tree(session, {path}, "", [&](CFG_RepositoryServices& draft) {
    require("cannot store the blob " + path, [&] {
      return draft.WriteBlobFromBuffer(path.c_str(), bytes.data(), static_cast<int>(bytes.size()),
                                       arguments.base64, RWCString(arguments.encoding));
    });
  });
}

}  // namespace cli
