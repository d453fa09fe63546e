#include "byte_file.h"

#include <algorithm>

#include <CFG/CFG_RepositoryServices.h>
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>

#include "failure.h"
#include "library_log.h"

namespace cli {

const char* form_name(Form form) {
  switch (form) {
    case Form::XML:
      return "xml";
    case Form::BYTES:
      return "bytes";
    case Form::BYTES_WITH_HEADER:
      return "bytes with header";
    case Form::SYNCED:
      return "synced file";
  }
  return "";
}

Form form_of(const InputFile& file) {
  constexpr std::string_view top_ids("\0\0\0\0\xFF\xFF\xFF\xFF", 8);
  char first[top_ids.size()];
  Sys_File opened;
  if (!opened.open(file.name())) throw Failure(BAD_INPUT, opened.error().str());
  const auto count = opened.read(first, sizeof first);
  const std::string_view start(first, static_cast<size_t>(std::max<int64_t>(count, 0)));
  if (start.substr(0, 7) == std::string_view("VSCFG#\0", 7)) return Form::SYNCED;
  if (start.substr(0, 2) != top_ids.substr(0, 2)) return Form::XML;
  return start == top_ids ? Form::BYTES : Form::BYTES_WITH_HEADER;
}

std::unique_ptr<CFG_SubTree> read_byte_file(const InputFile& file, Form form) {
  const std::string bytes = file.bytes();
  const Reasons reasons;
  std::unique_ptr<CFG_SubTree> tree(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      bytes.data(), static_cast<int>(bytes.size()), form == Form::BYTES_WITH_HEADER, "", false));
  if (tree) return tree;
  const std::string reason = reasons.first();
  const size_t operation = reason.find(" : ");  // its name stands before that
  throw Failure(BAD_INPUT,
                file.shown() + " is no whole byte array" +
                    (operation == reason.npos ? "" : ": " + reason.substr(operation + 3)));
}

std::string byte_array_of(Tree_Node& key, bool with_header) {
  const Reasons reasons;
  int length = 0;
  const std::unique_ptr<char[]> bytes(
      Tree_Node::GetSerializedTreeNode(Tree_NodePtr(&key), length, with_header));
  if (!bytes) throw Failure(REFUSED, with_reason("no byte array can hold this", reasons));
  return {bytes.get(), static_cast<size_t>(length)};
}

}  // namespace cli
