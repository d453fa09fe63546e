#include <CFG/xml/CFG_SAXImportHandlers.h>

#include <algorithm>
#include <limits>
#include <string_view>

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>

#include <CFG/CFG_SAXImport.h>
#include <CFG/xml/normal_path.h>
#include <CFG/xml/xml_text.h>
#include <logging/Logger.h>

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SAXImportHandlers", 502);

constexpr int max_depth = 64;  // of elements; the shape has four levels

template <class... A>
RWCString render(Log_Format<A...> format, const A&... args) {
  return Log_Render(format.text, {Log_Argument(args)...});
}

void log_problem(uint64_t line, uint64_t column, const RWCString& text) {
  logger.error("Error in parsing. Line: %lu culumn: %lu  info %S\n", line, column,
               RWWString::fromUTF8(text));
}

}  // namespace

void CFG_SAXImportHandlers::setDocumentLocator(const xc::Locator* locator) { m_locator = locator; }

// Told apart by the first letters, then compared as a whole.
CFG_SAXImportHandlers::Element CFG_SAXImportHandlers::element_named(const XMLCh* name) {
  const auto is = [&](const char16_t* known) {
    const XMLCh* c = name;
    while (*c && *c == *known) ++c, ++known;
    return *c == *known;
  };
  if (name[0] == u'v') return is(u"value") ? VALUE : OUTSIDE;
  if (name[0] == u'n') return is(u"node") ? NODE : OUTSIDE;
  if (name[0] == u'p' && name[1] == u'a') {
    if (name[2] == u't') return is(u"path_segment") ? PATH : OUTSIDE;
    return is(u"parent_path_segment") ? PARENT_PATH : OUTSIDE;
  }
  if (is(u"branch")) return BRANCH;
  return is(u"tree") ? TREE : OUTSIDE;
}

bool CFG_SAXImportHandlers::is_in_place(Element element) const {
  if (element == OUTSIDE || m_open != parents[element]) return false;
  if (element < PATH) return true;
  return m_last_child == NODE ? element == PATH : element > m_last_child;
}

void CFG_SAXImportHandlers::startElement(const XMLCh* name, xc::AttributeList&) {
  if (++m_depth > max_depth) return stop("Elements are nested more than %d deep", max_depth);
  const Element element = element_named(name);
  if (m_error_count > 0 && (element != OUTSIDE || m_is_validated)) return;
  if (!is_in_place(element)) {
    return wrong(render("The element <%s> is not expected here", cfg::xml_text(name)));
  }
  m_open = element;
  m_text = element == PATH ? &m_path : element == VALUE ? &m_value : nullptr;
  if (element >= NODE) m_last_child = element;
  if (element == BRANCH) check(m_branches.start_branch());
}

void CFG_SAXImportHandlers::characters(const XMLCh* chars, XMLSize_t length) {
  if (m_text && m_error_count == 0) m_text->append(chars, length);
}

void CFG_SAXImportHandlers::endElement(const XMLCh*) {
  --m_depth;
  if (m_error_count > 0) return;
  const Element ended = m_open;  // as nothing was out of its place
  m_open = parents[ended];
  m_text = nullptr;
  if (ended == NODE) end_node();
  if (ended == BRANCH) m_branches.end_branch();
}

void CFG_SAXImportHandlers::end_node() {
  if (m_last_child == NODE) return wrong("The node has no path_segment");
  check(m_branches.add_node(m_path.view(), m_value.view()));
  m_path.clear();
  m_value.clear();
}

void CFG_SAXImportHandlers::check(cfg::branch_list::Fault fault) {
  const std::string_view path = m_branches.path();
  switch (fault) {
    case cfg::branch_list::NONE:
      return;
    case cfg::branch_list::SECOND_BRANCH:
      logger.error("Error multiple subtree not supported\n");
      return count_here("Error multiple subtree not supported");
    case cfg::branch_list::TOO_MANY_BRANCHES:
      logger.error("error in import, Reached branch list limit of %d", CFG_SAXImport::MAX_BRANCHES);
      return count_here("Reached branch list limit");
    case cfg::branch_list::TOO_DEEP:
      return wrong(render("The path has more than %Iu levels", cfg::max_path_depth));
    case cfg::branch_list::NOT_IN_ROOT:
      logger.error("path %s is not in root  change to error state\n", path);
      return count_here(render("path %s is not in root", path));
    case cfg::branch_list::NO_VALUE:
      logger.error("Error in import value-list: value is NULL for path %s\n", path);
      return count_here(render("value is NULL for path %s", path));
    case cfg::branch_list::NO_PATH:
      return wrong("The path of a value is empty");
  }
}

xc::InputSource* CFG_SAXImportHandlers::resolveEntity(const XMLCh*, const XMLCh* system_id) {
  wrong(render("The external entity <%s> is not opened", cfg::xml_text(system_id)));
  static constexpr XMLByte nothing[1] = {};
  return new xc::MemBufInputSource(nothing, 0, "");
}

void CFG_SAXImportHandlers::error(const xc::SAXParseException& problem) { report(problem); }
void CFG_SAXImportHandlers::fatalError(const xc::SAXParseException& problem) { report(problem); }

void CFG_SAXImportHandlers::report(const xc::SAXParseException& problem) {
  if (m_is_stopped) return;
  const RWCString text = cfg::xml_text(problem.getMessage());
  log_problem(problem.getLineNumber(), problem.getColumnNumber(), text);
  count(problem.getLineNumber(), problem.getColumnNumber(), text);
}

void CFG_SAXImportHandlers::wrong(const RWCString& text) {
  if (m_is_stopped) return;
  log_problem(m_locator ? m_locator->getLineNumber() : 0,
              m_locator ? m_locator->getColumnNumber() : 0, text);
  count_here(text);
}

void CFG_SAXImportHandlers::count_here(const RWCString& text) {
  count(m_locator ? m_locator->getLineNumber() : 0, m_locator ? m_locator->getColumnNumber() : 0,
        text);
}

void CFG_SAXImportHandlers::count(uint64_t line, uint64_t column, const RWCString& text) {
  const auto as_int = [](uint64_t number) {
    return static_cast<int>(std::min<uint64_t>(number, std::numeric_limits<int>::max()));
  };
  if (++m_error_count == 1) {
    m_error_line = as_int(line);
    m_error_column = as_int(column);
    m_error_text = text;
  }
  if (m_error_count < MAX_ERRORS) return;
  logger.error("%d errors, the rest of the document is not read\n", m_error_count);
  m_is_stopped = true;
}
