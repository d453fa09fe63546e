// Writes trees as XML documents.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <logging/Log_Format.h>

class Tree_Node;

namespace cfg {

// Writes one document, a branch for each tree. Knows trees and where the bytes go, nothing
// else. The layout is drawn in xml_layout.h.
//
// What a reader would not give back as it is, is refused: bytes that no XML document holds,
// names that are changed by reading, but for capitals, two names of one key that only differ in
// them, paths deeper than a reader takes.
class xml_writer {
 public:
  // Takes the next bytes of the document; false when it cannot. It is not called again then.
  using Output = std::function<bool(std::string_view)>;

  explicit xml_writer(Output output);
  xml_writer(const xml_writer&) = delete;
  xml_writer& operator=(const xml_writer&) = delete;

  // The tree at `top`, below the key at the path `prefix`; empty for none. False when it
  // cannot be written; the document is of no use then.
  bool write_branch(Tree_Node& top, std::string_view prefix);
  // Behind the last branch.
  bool finish();
  // Why a call returned false; empty when the output is the reason.
  const std::string& fault() const { return m_fault; }

 private:
  struct Open {
    std::string_view name;
    size_t length;  // of the escaped path down to this key
  };

  bool enter(std::string_view name);
  bool check_name(std::string_view name);
  bool check_siblings(const Tree_Node& node);
  bool write_node(const Tree_Node& node);
  template <class... A>
  bool refuse(Log_Format<A...> format, const A&... args);
  std::string open_path() const;

  void put(std::string_view text);
  void put_long(std::string_view text);
  void drain();

  const Output m_output;
  const std::unique_ptr<char[]> m_buffer;
  size_t m_filled = 0;
  size_t m_drained = 0;
  bool m_output_holds = true;
  bool m_has_branch = false;
  std::vector<Open> m_open;  // the keys from the top of the path down to the current node
  size_t m_depth_above = 0;  // of those, how many stand above the branch
  std::string m_path;        // theirs, escaped
  // The children of a key whose names have capitals, by what is read for those names.
  std::set<std::pair<const Tree_Node*, std::string>> m_lowered;
  std::string m_fault;
};

}  // namespace cfg
