// How long an operation on a repository took.
#pragma once

#include <cstdint>
#include <string_view>

#include <strings/Export.h>

// A record of one operation, made when it begins; when the record goes, the event goes out,
// timed from the one to the other. One that is not enabled costs nothing and sends nothing:
//   const CFG_PerformanceEvent event(CFGPerformanceEnabled(), source, PERFORMANCE_GET_VALUE, path);
// The texts belong to the caller and outlive the record. One thread.
class HALVORIA_API CFG_PerformanceEvent {
 public:
  // The numbers under which the events are known.
  enum Operation {
    PERFORMANCE_GET_VALUE = 260,
    PERFORMANCE_GET_SUB_TREE,
    PERFORMANCE_SET_VALUE,
    PERFORMANCE_WRITE_SUB_TREE,
    PERFORMANCE_DELETE_VALUE,
    PERFORMANCE_DELETE_SUB_TREE,
  };

  // `source` is what answers ("Remote", "DB", "Cache"), `path` what is asked for, with its
  // properties in place.
  CFG_PerformanceEvent(bool is_enabled, const char* source, Operation operation,
                       std::string_view path)
      : m_path(path), m_source(source), m_operation(operation), m_is_enabled(is_enabled) {
    if (m_is_enabled) m_start = now();
  }
  CFG_PerformanceEvent(const CFG_PerformanceEvent&) = delete;
  CFG_PerformanceEvent& operator=(const CFG_PerformanceEvent&) = delete;
  ~CFG_PerformanceEvent() {
    if (m_is_enabled) send();
  }

  bool is_enabled() const { return m_is_enabled; }
  // Entries of the subtree that was read.
  void set_count(int count) { m_count = count; }
  // Whether a cache had the answer.
  void set_flag(bool flag) { m_flag = flag; }

 private:
  static int64_t now();  // nanoseconds
  void send() const;

  std::string_view m_path;
  const char* m_source;
  Operation m_operation;
  bool m_is_enabled;
  bool m_flag = false;
  int m_count = 0;
  int64_t m_start = 0;
};
