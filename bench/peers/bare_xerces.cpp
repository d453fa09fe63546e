#include <peers/bare_xerces.h>

#include <stdexcept>

#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace bench {
namespace {

class empty_handlers : public xercesc::HandlerBase {
 public:
  void error(const xercesc::SAXParseException&) override { ++faults; }
  void fatalError(const xercesc::SAXParseException&) override { ++faults; }
  int faults = 0;
};

struct xerces_user {
  xerces_user() { xercesc::XMLPlatformUtils::Initialize(); }
  ~xerces_user() { xercesc::XMLPlatformUtils::Terminate(); }
};

void parse(const xercesc::InputSource& source) {
  xercesc::SAXParser parser;
  parser.setValidationScheme(xercesc::SAXParser::Val_Auto);
  parser.setDoNamespaces(false);
  parser.setDoSchema(false);
  parser.setLoadExternalDTD(false);
  empty_handlers handlers;
  parser.setDocumentHandler(&handlers);
  parser.setErrorHandler(&handlers);
  parser.parse(source);
  if (handlers.faults) throw std::runtime_error("the document has a fault");
}

}  // namespace

void parse_buffer_bare(const std::string& document) {
  const xerces_user user;
  parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(document.data()),
                                   document.size(), "document"));
}

void parse_file_bare(const std::string& file) {
  const xerces_user user;
  XMLCh* name = xercesc::XMLString::transcode(file.c_str());
  parse(xercesc::LocalFileInputSource(name));
  xercesc::XMLString::release(&name);
}

}  // namespace bench
