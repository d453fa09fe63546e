// Several updates as one.
#pragma once

namespace cli {

// A repository whose updates within an update are part of it: the outermost end commits, or
// undoes all when one of them failed. One thread.
template <class Repository>
class OneUpdate : public Repository {
 public:
  using Repository::Repository;

  int StartTransactionUpdate() override {
    if (m_depth == 0 && !Repository::StartTransactionUpdate()) return 0;
    ++m_depth;
    return 1;
  }
  int EndTransactionUpdate(bool rollback) override {
    if (m_depth == 0) return 0;
    m_has_failed = m_has_failed || rollback;
    if (--m_depth > 0) return 1;
    const bool undo = m_has_failed;
    m_has_failed = false;
    return Repository::EndTransactionUpdate(undo);
  }

 private:
  int m_depth = 0;
  bool m_has_failed = false;
};

}  // namespace cli
