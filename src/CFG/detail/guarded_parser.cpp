#include <CFG/detail/guarded_parser.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDAttDef.hpp>
#include <xercesc/validators/DTD/DTDElementDecl.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>
#include <xercesc/validators/common/ContentSpecNode.hpp>

#include <CFG/detail/xml_text.h>

namespace cfg {
namespace {

// Of what the parser gets at once before the content begins, so that it has not read all of
// a long DTD before that is noticed.
constexpr size_t small_piece = 4096;

// Whether a content model has more names than `most`, or goes around them in as many groups.
bool is_larger(const xercesc::ContentSpecNode* model, size_t most) {
  std::vector<const xercesc::ContentSpecNode*> open{model};
  size_t seen = 0;
  while (!open.empty()) {
    const auto* node = open.back();
    open.pop_back();
    if (!node) continue;
    if (++seen > 3 * most) return true;  // a name brings one group and one repetition
    open.push_back(node->getFirst());
    open.push_back(node->getSecond());
  }
  return false;
}

}  // namespace

class guarded_source::stream : public xercesc::BinInputStream {
 public:
  stream(const guarded_source& source, xercesc::BinInputStream* from)
      : m_source(source), m_from(from) {}
  XMLFilePos curPos() const override { return m_from->curPos(); }
  const XMLCh* getContentType() const override { return m_from->getContentType(); }
  const XMLCh* getEncoding() const override { return m_from->getEncoding(); }

  XMLSize_t readBytes(XMLByte* to, XMLSize_t room) override {
    CFG_SAXImportHandlers& handlers = m_source.m_handlers;
    if (!handlers.HasContent()) room = std::min<XMLSize_t>(room, small_piece);
    const XMLSize_t count = m_from->readBytes(to, room);
    m_source.m_read += count;
    if (m_source.m_read > document_bounds::bytes) {
      handlers.stop("The document has more than %Iu bytes", document_bounds::bytes);
    }
    if (m_source.m_read > m_source.m_dtd_end) {
      handlers.stop("The DTD has more than %Iu bytes", document_bounds::dtd_bytes);
    }
    return count;
  }

 private:
  const guarded_source& m_source;
  const std::unique_ptr<xercesc::BinInputStream> m_from;
};

guarded_source::guarded_source(const xercesc::InputSource& source, CFG_SAXImportHandlers& handlers)
    : m_source(source), m_handlers(handlers) {
  setSystemId(source.getSystemId());
  setPublicId(source.getPublicId());
  setEncoding(source.getEncoding());
  setIssueFatalErrorIfNotFound(source.getIssueFatalErrorIfNotFound());
}

xercesc::BinInputStream* guarded_source::makeStream() const {
  xercesc::BinInputStream* from = m_source.makeStream();
  return from ? new stream(*this, from) : nullptr;
}

// What the parser has got already may belong to the DTD.
void guarded_source::SetInDtd(bool in_dtd) {
  m_dtd_end = in_dtd ? m_read + document_bounds::dtd_bytes : document_bounds::bytes;
}

guarded_parser::guarded_parser(CFG_SAXImportHandlers& handlers) : m_handlers(handlers) {
  useScanner(xercesc::XMLUni::fgDGXMLScanner);  // knows DTDs only, and is the faster for it
  setValidationScheme(Val_Auto);
  setDoNamespaces(false);
  setDoSchema(false);
  setValidationSchemaFullChecking(false);
  setLoadExternalDTD(false);
  setDisableDefaultEntityResolution(true);
  m_security.setEntityExpansionLimit(document_bounds::entity_expansions);
  setSecurityManager(&m_security);
  setDocumentHandler(&handlers);
  setErrorHandler(&handlers);
  setEntityResolver(&handlers);
  setDTDHandler(&handlers);  // without one the parser keeps declarations to itself
}

void guarded_parser::read(const xercesc::InputSource& source) {
  guarded_source guarded(source, m_handlers);
  m_source = &guarded;
  parse(guarded);
}

// Version 1.1 lets control characters into texts, which could not be written again.
void guarded_parser::XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                             const XMLCh* actual_encoding) {
  const RWCString number = xml_text(version);
  if (number != "1.0" && !number.isNull()) {
    m_handlers.stop("XML version %s is not supported, only 1.0", number);
  }
  SAXParser::XMLDecl(version, encoding, standalone, actual_encoding);
}

void guarded_parser::doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* public_id,
                                 const XMLCh* system_id, bool has_internal, bool has_external) {
  m_handlers.SetValidated();
  SAXParser::doctypeDecl(element, public_id, system_id, has_internal, has_external);
}

void guarded_parser::startIntSubset() { m_source->SetInDtd(true); }
void guarded_parser::endIntSubset() { m_source->SetInDtd(false); }

void guarded_parser::elementDecl(const xercesc::DTDElementDecl& element, bool) {
  if (is_larger(element.getContentSpec(), document_bounds::names_in_content)) {
    m_handlers.stop("The content of element <%s> is declared with more than %Iu names",
                    xml_text(element.getFullName()), document_bounds::names_in_content);
  }
}

// Every element would carry it.
void guarded_parser::attDef(const xercesc::DTDElementDecl& element,
                            const xercesc::DTDAttDef& attribute, bool) {
  if (attribute.getValue() && *attribute.getValue()) {
    m_handlers.stop("The declaration of an attribute of element <%s> has a default value",
                    xml_text(element.getFullName()));
  }
}

// Parameter entities can double the declarations with each level of them, uncounted.
void guarded_parser::entityDecl(const xercesc::DTDEntityDecl& entity, bool is_parameter,
                                bool is_ignored) {
  const RWCString name = xml_text(entity.getName());
  if (is_parameter) m_handlers.stop("The parameter entity <%s> is not supported", name);
  if (entity.getValueLen() > document_bounds::entity_chars) {
    m_handlers.stop("The entity <%s> has more than %Iu characters", name,
                    document_bounds::entity_chars);
  }
  SAXParser::entityDecl(entity, is_parameter, is_ignored);
}

}  // namespace cfg
