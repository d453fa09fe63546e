// The configuration of a real installation, as a file.
#pragma once

#include <string>

namespace bench {

std::string content(const std::string& file);

// A document as the library exports them: the real one, where there is one, until the end of this
// object; else the one that is given.
class real_document {
 public:
  real_document(const std::string& folder, const std::string& made_up);
  real_document(const real_document&) = delete;
  real_document& operator=(const real_document&) = delete;
  ~real_document();

  const std::string& file() const { return m_file; }
  // Its last value.
  const std::string& path() const { return m_path; }
  const std::string& value() const { return m_value; }

 private:
  const bool m_is_real;
  const std::string m_file;
  std::string m_path, m_value;
};

}  // namespace bench
