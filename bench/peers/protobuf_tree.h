// The tree as a message of Protocol Buffers.
#pragma once

#include <memory>
#include <string>

#include <common/installation.h>

namespace bench {

// One message a node, with its id and its parent's, in one list.
class protobuf_tree {
 public:
  static constexpr const char* parse_name = "protobuf parse into an arena";
  static constexpr const char* serialise_name = "protobuf serialise";

  // An empty message in an arena of its own.
  protobuf_tree();
  explicit protobuf_tree(const records& all);
  ~protobuf_tree();

  void parse(const std::string& bytes);  // throws std::runtime_error
  std::string serialised() const;
  size_t size() const;

 private:
  struct message;
  std::unique_ptr<message> m_message;
};

}  // namespace bench
