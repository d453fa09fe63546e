#include <CFG/xml/guarded_parser.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDAttDef.hpp>
#include <xercesc/validators/DTD/DTDElementDecl.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>
#include <xercesc/validators/common/ContentSpecNode.hpp>

#include <CFG/xml/parsing_stopped.h>
#include <CFG/xml/xml_text.h>

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
  stream(const guarded_source& source, xercesc::BinInputStream& from)
      : m_source(source), m_from(from) {}
  XMLFilePos curPos() const override { return m_from.curPos(); }
  const XMLCh* getContentType() const override { return m_from.getContentType(); }
  const XMLCh* getEncoding() const override { return m_from.getEncoding(); }

  XMLSize_t readBytes(XMLByte* to, XMLSize_t room) override {
    CFG_SAXImportHandlers& handlers = m_source.m_handlers;
    if (handlers.IsStopped() || m_source.m_memory.HasRunOut()) return 0;
    if (!handlers.HasContent()) room = std::min<XMLSize_t>(room, small_piece);
    try {
      const XMLSize_t count = m_from.readBytes(to, room);
      m_source.m_read += count;
      if (m_source.m_read <= m_source.m_end) return count;
    } catch (const parsing_stopped& stopped) {
      handlers.stop("%s", stopped.reason);
      return 0;
    }
    if (m_source.m_is_in_dtd) {
      handlers.stop("The DTD has more than %Iu bytes", document_bounds::dtd_bytes);
    } else {
      handlers.stop("The document has more than %Iu bytes", document_bounds::bytes);
    }
    return 0;
  }

 private:
  const guarded_source& m_source;
  xercesc::BinInputStream& m_from;
};

guarded_source::guarded_source(const xercesc::InputSource& source, CFG_SAXImportHandlers& handlers,
                               parse_memory& memory)
    : m_source(source), m_handlers(handlers), m_memory(memory) {
  setSystemId(source.getSystemId());
  setPublicId(source.getPublicId());
  setEncoding(source.getEncoding());
  setIssueFatalErrorIfNotFound(source.getIssueFatalErrorIfNotFound());
}

xercesc::BinInputStream* guarded_source::makeStream() const {
  m_from.reset(m_source.makeStream());
  return m_from ? new (&m_memory) stream(*this, *m_from) : nullptr;
}

// Some of the DTD is among the bytes that the parser has got already.
void guarded_source::SetInDtd(bool is_in_dtd) {
  m_is_in_dtd = is_in_dtd;
  m_end = is_in_dtd ? m_read + document_bounds::dtd_bytes : document_bounds::bytes;
}

parse_memory::parse_memory() : m_reserve(new char[reserve_bytes]) {}

parse_memory::~parse_memory() {
  for (Block* block = m_all.behind; block != &m_all;) release(std::exchange(block, block->behind));
}

void* parse_memory::from_reserve(size_t size) {
  const size_t rounded = (size + sizeof(Block) - 1) / sizeof(Block) * sizeof(Block);
  if (rounded > reserve_bytes - m_taken) return nullptr;
  return m_reserve.get() + std::exchange(m_taken, m_taken + rounded);
}

void parse_memory::release(Block* block) {
  const auto* const bytes = reinterpret_cast<const char*>(block);
  const std::less<> before;
  const bool is_reserve =
      !before(bytes, m_reserve.get()) && before(bytes, m_reserve.get() + reserve_bytes);
  if (!is_reserve) ::operator delete(block);
}

void* parse_memory::allocate(XMLSize_t size) {
  void* memory = ::operator new(sizeof(Block) + size, std::nothrow);
  if (!memory) memory = from_reserve(sizeof(Block) + size);
  if (!memory) throw xercesc::OutOfMemoryException();
  auto* const block = new (memory) Block{&m_all, m_all.behind};
  block->behind->before = block;
  m_all.behind = block;
  return block + 1;
}

void parse_memory::deallocate(void* memory) {
  if (memory) free(static_cast<Block*>(memory) - 1);
}

void parse_memory::free(Block* block) {
  block->before->behind = block->behind;
  block->behind->before = block->before;
  release(block);
}

// Exceptions are looked at when this object is gone.
xercesc::MemoryManager* parse_memory::getExceptionMemoryManager() {
  return xercesc::XMLPlatformUtils::fgMemoryManager;
}

guarded_parser::guarded_parser(CFG_SAXImportHandlers& handlers)
    : SAXParser(nullptr, this), m_handlers(handlers) {
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
  guarded_source guarded(source, m_handlers, *this);
  m_source = &guarded;
  try {
    parse(guarded);
  } catch (...) {
    if (!HasRunOut()) throw;
  }
  if (HasRunOut()) throw xercesc::OutOfMemoryException();
}

// At once: what has been declared must not come to use.
template <class... A>
void guarded_parser::refuse(Log_Format<A...> format, const A&... args) {
  m_handlers.stop(format, args...);
  throw parsing_stopped{};
}

// Version 1.1 lets control characters into texts, which could not be written again.
void guarded_parser::XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                             const XMLCh* actual_encoding) {
  const RWCString number = xml_text(version);
  if (number != "1.0" && !number.isNull()) {
    refuse("XML version %s is not supported, only 1.0", number);
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
    refuse("The content of element <%s> is declared with more than %Iu names",
           xml_text(element.getFullName()), document_bounds::names_in_content);
  }
}

// Every element would carry it.
void guarded_parser::attDef(const xercesc::DTDElementDecl& element,
                            const xercesc::DTDAttDef& attribute, bool) {
  if (attribute.getValue() && *attribute.getValue()) {
    refuse("The declaration of an attribute of element <%s> has a default value",
           xml_text(element.getFullName()));
  }
}

// Parameter entities can double the declarations with each level of them, uncounted.
void guarded_parser::entityDecl(const xercesc::DTDEntityDecl& entity, bool is_parameter,
                                bool is_ignored) {
  const RWCString name = xml_text(entity.getName());
  if (is_parameter) refuse("The parameter entity <%s> is not supported", name);
  if (entity.getValueLen() > document_bounds::entity_chars) {
    refuse("The entity <%s> has more than %Iu characters", name, document_bounds::entity_chars);
  }
  SAXParser::entityDecl(entity, is_parameter, is_ignored);
}

}  // namespace cfg
