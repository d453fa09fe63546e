#include <CFG/CFG_SAXImport.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <CFG/detail/answered.h>
#include <CFG/xml/CFG_SAXImportHandlers.h>
#include <CFG/xml/branch_list.h>
#include <CFG/xml/branch_nodes.h>
#include <CFG/xml/guarded_parser.h>
#include <CFG/xml/own_layout.h>
#include <CFG/xml/parsing_stopped.h>
#include <CFG/xml/timed_step.h>
#include <CFG/xml/xml_file_source.h>
#include <CFG/xml/xml_text.h>
#include <logging/Logger.h>
#include <system/Sys_File.h>
#include <thread/ForkHandler.h>
#include <tree/Tree_Node.h>

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SAXImport", 502);

enum { DONE = 0, NO_PLATFORM = 1, HAS_ERRORS = 4, GAVE_UP = -1 };

RWWString wide(const XMLCh* text) { return RWWString::fromUTF8(cfg::xml_text(text)); }

ForkOnce platform_is_tried(ForkHandler::TREES);

// Instead of the end of the process.
struct Panic : xc::PanicHandler {
  void panic(PanicReasons) override { throw std::bad_alloc(); }
};

bool initialize_platform() {
  static Panic panic;
  try {
    xc::XMLPlatformUtils::Initialize(xc::XMLUni::fgXercescDefaultLocale, nullptr, &panic);
    return true;
  } catch (const xc::XMLException& e) {
    return logger.reject(false, "Error during initialization! %S :\n", wide(e.getMessage()));
  } catch (...) {  // bad_alloc, or their own of that kind: half-made tables cannot be made anew
    logger.severe("Error during initialization! memory ran out; this process reads no XML\n");
    return false;
  }
}

int give_up(CFG_SAXImportHandlers& handlers, const RWCString& reason) {
  logger.error("An error occurred: %S \n", RWWString::fromUTF8(reason));
  if (handlers.GetErrorCount() == 0) handlers.count_error(reason);
  return GAVE_UP;
}

// The document ended wherever the parser had no memory left, and seemed broken there.
int run_out(CFG_SAXImportHandlers& handlers) {
  handlers.forget_errors();
  return give_up(handlers, "out of memory");
}

// DONE, also when errors were counted, or GAVE_UP.
int parse_with(const xc::InputSource& source, CFG_SAXImportHandlers& handlers) {
  const cfg::timed_step timed("cfg_sax_parse_xml");
  try {
    cfg::guarded_parser(handlers).read(source);
  } catch (const cfg::parsing_stopped&) {  // counted
  } catch (const xc::XMLException& e) {
    return give_up(handlers, cfg::xml_text(e.getMessage()));
  } catch (const xc::SAXException& e) {
    return give_up(handlers, cfg::xml_text(e.getMessage()));
  } catch (const xc::OutOfMemoryException&) {
    return run_out(handlers);
  } catch (const std::bad_alloc&) {
    return run_out(handlers);
  } catch (const std::exception& e) {
    return give_up(handlers, e.what());
  }
  return DONE;
}

void log_last_path(cfg::branch_list& read) {
  const auto& branches = read.branches();
  const cfg::branch_nodes* nodes = branches.empty() ? nullptr : branches.back().nodes.get();
  if (!nodes || nodes->size() == 0) {
    logger.error(
        "error in import XML failed at first lines (may be <branch>  <node> or <tree> are missing "
        "?)\n");
  } else {
    logger.error("error in import XML last line path is %s\n", nodes->path_of_last());
  }
}

}  // namespace

struct CFG_SAXImport::Branch {
  std::unique_ptr<cfg::branch_nodes> nodes;  // null when there was none, and when they were taken
  NodesVec* records = nullptr;               // made from them
  RWCString root_path;
};

CFG_SAXImport::CFG_SAXImport() = default;

CFG_SAXImport::~CFG_SAXImport() { drop_lists(); }

bool CFG_SAXImport::InitXercescPlatformUtils() {
  static constinit bool is_ready = false;  // stays to the end of the process
  platform_is_tried.call([] { is_ready = initialize_platform(); });
  return is_ready;
}

int CFG_SAXImport::Init(const RWWString& file, uint64_t flags) try {
  Sys_File opened;
  if (opened.open(file)) return Init(opened, flags);
  start_over();
  return fail_to_read(opened.error());
} catch (...) {
  return cfg::answered(logger, GAVE_UP);
}

int CFG_SAXImport::Init(Sys_File& file, uint64_t flags) try {
  const cfg::timed_step timed("cfg_sax_imp_xml");
  start_over();
  if (file.is_regular()) {
    if (read_exported(file, flags)) return DONE;
    if (!file.rewind()) return fail_to_read(file.error());
  }
  if (!InitXercescPlatformUtils()) return NO_PLATFORM;
  return parse(cfg::xml_file_source(file), flags);
} catch (...) {
  return cfg::answered(logger, GAVE_UP);
}

int CFG_SAXImport::InitFromBuffer(std::string_view document, uint64_t flags) try {
  const cfg::timed_step timed("cfg_sax_imp_xml");
  start_over();
  if (read_exported(document, flags)) return DONE;
  if (!InitXercescPlatformUtils()) return NO_PLATFORM;
  xc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(document.data()), document.size(),
                               "Fake_ID");
  source.setCopyBufToStream(false);
  return parse(source, flags);
} catch (...) {
  return cfg::answered(logger, GAVE_UP);
}

int CFG_SAXImport::Init(const xc::InputSource& source, uint64_t flags) try {
  const cfg::timed_step timed("cfg_sax_imp_xml");
  start_over();
  return InitXercescPlatformUtils() ? parse(source, flags) : NO_PLATFORM;
} catch (...) {
  return cfg::answered(logger, GAVE_UP);
}

int CFG_SAXImport::parse(const xc::InputSource& source, uint64_t flags) {
  CFG_SAXImportHandlers handlers(flags);
  const int result = parse_with(source, handlers);
  take_errors(handlers);
  if (result != DONE) return result;
  if (m_error_count > 0) {
    log_last_path(handlers.branches());
    return HAS_ERRORS;
  }
  take_branches(handlers.branches());
  return DONE;
}

// False when the parser has to read the document, which will also say when memory is short.
template <class Source>
bool CFG_SAXImport::read_exported(Source& source, uint64_t flags) {
  const cfg::timed_step timed("cfg_sax_parse_xml");
  try {
    cfg::branch_list branches(flags);
    if (!cfg::read_own_layout(source, branches)) return false;
    take_branches(branches);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void CFG_SAXImport::take_branches(cfg::branch_list& read) {
  const cfg::timed_step timed("cfg_sax_swap");
  m_branches.resize(static_cast<size_t>(std::max<uint64_t>(read.branch_count(), 1)));
  auto to = m_branches.begin();
  for (auto& from : read.branches()) {
    to->root_path = from.root_path;
    to->nodes = std::move(from.nodes);
    ++to;
  }
}

void CFG_SAXImport::take_errors(const CFG_SAXImportHandlers& handlers) {
  m_error_count = handlers.GetErrorCount();
  m_error_line = handlers.GetErrorLine();
  m_error_column = handlers.GetErrorColumn();
  m_error_text = handlers.error_text();
}

int CFG_SAXImport::fail_to_read(const RWCString& reason) {
  CFG_SAXImportHandlers handlers(0);
  handlers.count_error(reason);
  take_errors(handlers);
  return logger.reject(HAS_ERRORS, "%s\n", reason);
}

void CFG_SAXImport::start_over() {
  drop_lists();
  m_error_count = m_error_line = m_error_column = 0;
  m_error_text = RWCString();
}

void CFG_SAXImport::drop_lists() {
  for (Branch& branch : m_branches) {
    if (m_clear_at_dtor) delete branch.records;
  }
  m_branches.clear();
}

CFG_SAXImport::Branch* CFG_SAXImport::branch(int i) {
  return i >= 0 && i < GetNumOfVectors() ? &m_branches[static_cast<size_t>(i)] : nullptr;
}

// The list is made when it is asked for: who only wants the tree does without.
CFG_SAXImport::NodesVec* CFG_SAXImport::GetNodesVecIndex(int i) {
  Branch* found = branch(i);
  if (!found || !found->nodes) return nullptr;
  if (!found->records) {
    const cfg::timed_step timed("cfg_sax_sort");
    found->records = found->nodes->records().release();
  }
  return found->records;
}

int CFG_SAXImport::GetNodesNumIndex(int i) {
  const Branch* found = branch(i);
  return found && found->nodes ? static_cast<int>(found->nodes->size()) : -1;
}

RWCString CFG_SAXImport::GetRootPathIndex(int i) {
  const Branch* found = branch(i);
  return found ? found->root_path : RWCString();
}

RWCString CFG_SAXImport::GetRootPath() { return GetRootPathIndex(0); }

int CFG_SAXImport::GetNumOfVectors() { return static_cast<int>(m_branches.size()); }

CFG_SAXImport::NodesVec* CFG_SAXImport::TakeOwnershipOfVecIndex(int i) {
  NodesVec* list = GetNodesVecIndex(i);
  if (!list) return nullptr;
  branch(i)->records = nullptr;
  branch(i)->nodes.reset();
  return list;
}

void CFG_SAXImport::SetClearVectorAtDtor(bool clear) { m_clear_at_dtor = clear; }

Tree_NodePtr CFG_SAXImport::BuildSubTreeIndex(int i) {
  Branch* found = branch(i);
  if (!found || !found->nodes) return nullptr;
  return std::exchange(found->nodes, nullptr)->take_tree();  // of new nodes, which are protected
}
