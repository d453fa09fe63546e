// The XML parser as documents from anywhere are read with it.
#pragma once

#include <cstddef>
#include <memory>

#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include <CFG/xml/CFG_SAXImportHandlers.h>

namespace cfg {

// Bounds on what a document may ask of the parser, each far beyond what a document of trees
// needs. Entities, content models and attributes of a hostile DTD are cheap to write and
// dear to read: work that doubles with each declaration, and content models so deep that
// the parser runs out of stack when it frees them.
struct document_bounds {
  static constexpr size_t bytes = (size_t{1} << 31) - 1;  // of a document
  static constexpr size_t dtd_bytes = 8 * 1024;           // of the declarations in it
  static constexpr size_t names_in_content = 32;          // in the declaration of an element
  static constexpr size_t entity_chars = 4096;            // in the declaration of an entity
  static constexpr size_t entity_expansions = 50000;      // references to declared entities
};

class parse_memory;

// Passes a document on to the parser. When the document or its DTD is too long, cannot be
// read on, or has too many errors, it ends there: the parser then cleans up after itself,
// which it does not after every exception.
class guarded_source : public xercesc::InputSource {
 public:
  // All must outlive this object.
  guarded_source(const xercesc::InputSource& source, CFG_SAXImportHandlers& handlers,
                 parse_memory& memory);
  // Once. What is read from stays here: the parser loses a stream when it has no memory to read it.
  xercesc::BinInputStream* makeStream() const override;
  void SetInDtd(bool is_in_dtd);

 private:
  class stream;

  const xercesc::InputSource& m_source;
  CFG_SAXImportHandlers& m_handlers;
  parse_memory& m_memory;
  mutable std::unique_ptr<xercesc::BinInputStream> m_from;
  bool m_is_in_dtd = false;
  size_t m_end = document_bounds::bytes;  // how many bytes the parser may get
  mutable size_t m_read = 0;              // how many it has got
};

// Memory for one parse. What the parser loses on its way out of a broken declaration goes
// with this object. The parser does not live through an allocation that fails wherever it likes,
// so that it then gets what it needs to come to an end from a reserve.
class parse_memory : public xercesc::MemoryManager {
 public:
  parse_memory();
  parse_memory(const parse_memory&) = delete;
  parse_memory& operator=(const parse_memory&) = delete;
  ~parse_memory() override;
  void* allocate(XMLSize_t size) override;
  void deallocate(void* memory) override;
  xercesc::MemoryManager* getExceptionMemoryManager() override;
  // Whether the system had none: whatever was parsed is not to be used.
  bool HasRunOut() const { return m_taken > 0; }

 private:
  struct alignas(std::max_align_t) Block {
    Block* before = this;
    Block* behind = this;
  };
  void* from_reserve(size_t size);
  void release(Block* block);
  void free(Block* block);

  static constexpr size_t reserve_bytes = size_t{256} << 10;  // takes no memory until it is used
  const std::unique_ptr<char[]> m_reserve;
  size_t m_taken = 0;
  Block m_all;  // a ring
};

// Reads one document: validates it when it carries a DTD, opens nothing beside it, and
// reports to the handlers. What it throws, CFG_SAXImport catches.
class guarded_parser : private parse_memory, private xercesc::SAXParser {
 public:
  explicit guarded_parser(CFG_SAXImportHandlers& handlers);
  void read(const xercesc::InputSource& source);

 private:
  void XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
               const XMLCh* actual_encoding) override;
  void startIntSubset() override;
  void endIntSubset() override;
  void doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* public_id,
                   const XMLCh* system_id, bool has_internal, bool has_external) override;
  void elementDecl(const xercesc::DTDElementDecl& element, bool is_ignored) override;
  void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
              bool is_ignored) override;
  void entityDecl(const xercesc::DTDEntityDecl& entity, bool is_parameter,
                  bool is_ignored) override;

  template <class... A>
  [[noreturn]] void refuse(Log_Format<A...> format, const A&... args);

  CFG_SAXImportHandlers& m_handlers;
  xercesc::SecurityManager m_security;
  guarded_source* m_source = nullptr;  // while it is read
};

}  // namespace cfg
