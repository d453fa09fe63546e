#include <peers/linked_nodes.h>

#include <cstdint>
#include <cstring>

namespace bench {

namespace {

char* put_integer(char* to, uint32_t value) {
  value = __builtin_bswap32(value);
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}

char* put_text(char* to, std::string_view text) {
  to = put_integer(to, static_cast<uint32_t>(text.size()));
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

}  // namespace

linked_nodes::linked_nodes(const records& all) : m_nodes(all.size()) {
  size_t size = 0;
  for (const record& r : all) size += r.name.size() + r.value.size();
  m_texts.reserve(size);  // views of it stay valid
  const auto keep = [&](const std::string& text) {
    m_texts += text;
    return std::string_view(m_texts).substr(m_texts.size() - text.size());
  };
  for (size_t i = 0; i < all.size(); ++i) {
    node& n = m_nodes[i];
    n.name = keep(all[i].name);
    n.value = keep(all[i].value);
    if (all[i].parent < 0) continue;
    node& parent = m_nodes[static_cast<size_t>(all[i].parent)];
    (parent.last ? parent.last->next : parent.first) = &n;
    parent.last = &n;
  }
}

std::vector<char> linked_nodes::encoded() const {
  size_t size = 0;
  for (const node& n : m_nodes) {
    size += 16 + n.name.size() + (n.value.empty() ? 0 : n.value.size() + 4);
  }
  std::vector<char> bytes(size);
  uint32_t next_id = 0;
  put(m_nodes.front(), ~0u, next_id, bytes.data());
  return bytes;
}

// Recurses over depth, which is 8 here.
char* linked_nodes::put(const node& n, uint32_t parent_id, uint32_t& next_id, char* to) {
  const uint32_t id = next_id++;
  to = put_integer(put_integer(to, id), parent_id);
  to = put_text(put_text(to, n.name), n.value);
  if (!n.value.empty()) to = put_integer(to, 0);
  for (const node* child = n.first; child; child = child->next) to = put(*child, id, next_id, to);
  return to;
}

}  // namespace bench
