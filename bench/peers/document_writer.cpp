#include <peers/document_writer.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace bench {
namespace {

constexpr std::string_view prologue =
    "<?xml  version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE tree [\n<!ELEMENT tree (branch)+>\n"
    "<!ELEMENT branch (node)+>\n<!ELEMENT node (path_segment,parent_path_segment?,value?)>\n"
    "<!ELEMENT path_segment (#PCDATA)>\n<!ELEMENT parent_path_segment (#PCDATA)>\n"
    "<!ELEMENT value (#PCDATA)>\n]>\n<tree>\n<branch>\n\n";

constexpr std::string_view escaped(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&apos;";
    default:
      return {};
  }
}

constexpr auto is_special = [] {
  std::array<bool, 256> special{};
  for (const char c : std::string_view("&<>\"'")) special[static_cast<unsigned char>(c)] = true;
  return special;
}();

class writer {
 public:
  explicit writer(const std::string& file)
      : m_file(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)) {
    if (m_file < 0) throw std::runtime_error("cannot write " + file);
  }
  ~writer() { ::close(m_file); }
  writer(const writer&) = delete;
  writer& operator=(const writer&) = delete;

  void put(std::string_view text) {
    std::memcpy(m_at, text.data(), text.size());
    m_at += text.size();
  }
  // Returns what was put.
  std::string_view put_escaped(std::string_view text) {
    char* const begin = m_at;
    for (size_t at = 0;;) {
      size_t end = at;
      while (end < text.size() && !is_special[static_cast<unsigned char>(text[end])]) ++end;
      put(text.substr(at, end - at));
      if (end == text.size()) return {begin, static_cast<size_t>(m_at - begin)};
      put(escaped(text[end]));
      at = end + 1;
    }
  }
  void make_room(size_t size) {
    if (static_cast<size_t>(m_at - m_buffer.data()) + size > m_buffer.size()) flush();
  }
  void flush() {
    const auto size = m_at - m_buffer.data();
    if (::write(m_file, m_buffer.data(), static_cast<size_t>(size)) != size) {
      throw std::runtime_error("cannot write");
    }
    m_at = m_buffer.data();
  }
  void sync() { ::fsync(m_file); }

 private:
  const int m_file;
  std::vector<char> m_buffer = std::vector<char>(256 * 1024);
  char* m_at = m_buffer.data();
};

}  // namespace

void write_document(const records& all, const std::string& file, bool synced) {
  writer to(file);
  to.put(prologue);
  for (const record& r : all) {
    to.make_room(12 * r.path.size() + 6 * r.value.size() + 128);
    to.put("<node>\n<path_segment>");
    const std::string_view path = to.put_escaped(r.path);
    to.put("</path_segment>\n<parent_path_segment>");
    const size_t cut = path.rfind('\\');
    if (cut != path.npos) to.put(path.substr(0, cut));
    to.put("</parent_path_segment>\n<value>");
    to.put_escaped(r.value);
    to.put("</value>\n</node>\n\n");
  }
  to.put("</branch>\n</tree>\n");
  to.flush();
  if (synced) to.sync();
}

}  // namespace bench
