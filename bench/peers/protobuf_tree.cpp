#include <peers/protobuf_tree.h>

#include <stdexcept>

#include <google/protobuf/arena.h>
#include <tree.pb.h>

namespace bench {

struct protobuf_tree::message {
  google::protobuf::Arena arena;
  proto::Tree& tree = *google::protobuf::Arena::CreateMessage<proto::Tree>(&arena);
};

protobuf_tree::protobuf_tree() : m_message(std::make_unique<message>()) {}
protobuf_tree::~protobuf_tree() = default;

protobuf_tree::protobuf_tree(const records& all) : protobuf_tree() {
  for (int id = 0; id < static_cast<int>(all.size()); ++id) {
    const record& r = all[static_cast<size_t>(id)];
    proto::Node& node = *m_message->tree.add_nodes();
    node.set_id(id);
    node.set_parent(r.parent);
    node.set_name(r.name);
    node.set_value(r.value);
  }
}

void protobuf_tree::parse(const std::string& bytes) {
  if (!m_message->tree.ParseFromString(bytes)) throw std::runtime_error("protobuf parse");
}

std::string protobuf_tree::serialised() const { return m_message->tree.SerializeAsString(); }

size_t protobuf_tree::size() const { return static_cast<size_t>(m_message->tree.nodes_size()); }

}  // namespace bench
