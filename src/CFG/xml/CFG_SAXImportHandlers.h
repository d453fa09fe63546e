// What the XML parser calls while it reads a document of trees.
#pragma once

#include <cstdint>

#include <xercesc/sax/HandlerBase.hpp>

#include <CFG/xml/branch_list.h>
#include <CFG/xml/utf8_text.h>
#include <logging/Log_Format.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// Collects the nodes of a document, a list for each branch, and holds the
// document to its shape:
//   tree > branch+ > node+ > path_segment, parent_path_segment?, value?
// so that documents without a DTD are as safe as those that carry it. Text counts in the
// three innermost elements only; that of parent_path_segment is not needed.
//
// An object lives for one parse. Errors only add up; after the first, nothing more is
// collected.
class CFG_SAXImportHandlers : public XERCES_CPP_NAMESPACE::HandlerBase {
 public:
  // A document with more errors is not read to its end.
  static constexpr int MAX_ERRORS = 1000;

  explicit CFG_SAXImportHandlers(uint64_t flags) : m_branches(flags) {}

  cfg::branch_list& branches() { return m_branches; }
  int GetErrorCount() const { return m_error_count; }
  // Of the first error; 0 when there is none, or it has no place in the document.
  int GetErrorLine() const { return m_error_line; }
  int GetErrorColumn() const { return m_error_column; }
  const RWCString& error_text() const { return m_error_text; }

  bool HasContent() const { return m_depth > 0; }  // the root element has begun
  // The document carries a DTD, so that the parser itself tells unknown elements.
  void SetValidated() { m_is_validated = true; }
  // Counts an error where the parser stands, the last one: the source has to end here.
  template <class... A>
  void stop(Log_Format<A...> format, const A&... args) {
    wrong(Log_Render(format.text, {Log_Argument(args)...}));
    m_is_stopped = true;
  }
  bool IsStopped() const { return m_is_stopped; }
  // What was counted was no fault of the document.
  void forget_errors() { m_error_count = 0; }
  // Counts an error that is logged already and has no place in the document.
  void count_error(const RWCString& text) { count(0, 0, text); }

  // --- HandlerBase -------------------------------------------------------------------------

  void setDocumentLocator(const XERCES_CPP_NAMESPACE::Locator* locator) override;
  void startElement(const XMLCh* name, XERCES_CPP_NAMESPACE::AttributeList&) override;
  void characters(const XMLCh* chars, XMLSize_t length) override;
  void endElement(const XMLCh* name) override;
  // Nothing outside the document is ever opened: an error, and an empty source.
  XERCES_CPP_NAMESPACE::InputSource* resolveEntity(const XMLCh* public_id,
                                                   const XMLCh* system_id) override;
  void error(const XERCES_CPP_NAMESPACE::SAXParseException& problem) override;
  void fatalError(const XERCES_CPP_NAMESPACE::SAXParseException& problem) override;

 private:
  // In the order in which they may follow each other in a node.
  enum Element { OUTSIDE, TREE, BRANCH, NODE, PATH, PARENT_PATH, VALUE };
  static constexpr Element parents[] = {OUTSIDE, OUTSIDE, TREE, BRANCH, NODE, NODE, NODE};

  static Element element_named(const XMLCh* name);
  bool is_in_place(Element element) const;
  void end_node();
  // Tells and counts what the branches find wrong.
  void check(cfg::branch_list::Fault fault);

  // Logs what is wrong where the parser stands, as the parser's own errors are logged, and
  // counts it.
  void wrong(const RWCString& text);
  // Counts an error that is logged already, where the parser stands.
  void count_here(const RWCString& text);
  void count(uint64_t line, uint64_t column, const RWCString& text);
  void report(const XERCES_CPP_NAMESPACE::SAXParseException& problem);

  cfg::branch_list m_branches;
  const XERCES_CPP_NAMESPACE::Locator* m_locator = nullptr;
  Element m_open = OUTSIDE;     // the innermost element
  Element m_last_child = NODE;  // of the open node; NODE when it has none yet
  int m_depth = 0;
  bool m_is_validated = false;
  bool m_is_stopped = false;
  cfg::utf8_text* m_text = nullptr;  // where text goes now, null when it does not count
  cfg::utf8_text m_path, m_value;

  int m_error_count = 0;
  int m_error_line = 0;
  int m_error_column = 0;
  RWCString m_error_text;
};
