#include <common/real_document.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <common/need.h>

namespace bench {
namespace {

const char* const packed = HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz";

// What stands between the last `begin` and the `end` behind it.
std::string last_between(const std::string& text, const std::string& begin,
                         const std::string& end) {
  const size_t from = text.rfind(begin) + begin.size();
  return text.substr(from, text.find(end, from) - from);
}

}  // namespace

std::string content(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

real_document::real_document(const std::string& folder, const std::string& made_up)
    : m_is_real(std::filesystem::exists(packed)),
      m_file(m_is_real ? folder + "/real.xml" : made_up) {
  if (m_is_real) {
    const std::string unpack = std::string("gzip -dc '") + packed + "' > '" + m_file + "'";
    need(std::system(unpack.c_str()) == 0, "gzip");
  }
  const std::string text = content(m_file);
  m_path = last_between(text, "<path_segment>", "</path_segment>");
  m_value = last_between(text, "<value>", "</value>");
}

real_document::~real_document() {
  std::error_code ignored;
  if (m_is_real) std::filesystem::remove(m_file, ignored);
}

}  // namespace bench
