#include <CFG/xml/xml_file_source.h>

#include <string>

#include <xercesc/util/BinInputStream.hpp>

#include <CFG/xml/guarded_parser.h>
#include <CFG/xml/parsing_stopped.h>
#include <i18n/I18n_Utf8.h>

namespace cfg {

class xml_file_source::stream : public xercesc::BinInputStream {
 public:
  explicit stream(Sys_File& file) : m_file(file) {}
  XMLFilePos curPos() const override { return m_position; }
  const XMLCh* getContentType() const override { return nullptr; }

  XMLSize_t readBytes(XMLByte* to, XMLSize_t room) override {
    if (m_file.size() > document_bounds::bytes) {
      throw parsing_stopped{"file <" + m_file.name() + "> is too long: " +
                            RWCString(std::to_string(m_file.size())) + " bytes"};
    }
    const int64_t count = m_file.read(reinterpret_cast<char*>(to), room);
    if (count < 0) throw parsing_stopped{m_file.error()};
    m_position += static_cast<XMLFilePos>(count);
    return static_cast<XMLSize_t>(count);
  }

 private:
  Sys_File& m_file;
  XMLFilePos m_position = 0;
};

xml_file_source::xml_file_source(Sys_File& file) : m_file(file) {
  setSystemId(I18n_Utf8::ToUtf16(file.name()).c_str());
}

xercesc::BinInputStream* xml_file_source::makeStream() const { return new stream(m_file); }

}  // namespace cfg
