// Callers are built against the places of the virtual operations: none may move.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_SynchronizedFileRepository.h>

namespace {

// Where an operation stands among the virtual ones, both forms of the destructor being the first.
template <class Operation>
size_t slot_of(Operation operation) {
  static_assert(sizeof(operation) == 2 * sizeof(ptrdiff_t), "as the Itanium C++ ABI draws it");
  ptrdiff_t words[2];
  std::memcpy(words, &operation, sizeof words);
  return static_cast<size_t>(words[0]) / sizeof(void*) - 1;
}

// How many a class has: where the next one would stand.
template <class Class>
struct Derived : Class {
  virtual void next_operation();
  static size_t slots() { return slot_of(&Derived::next_operation); }
};

using RuleRead = CFG_SubTree* (CFG_RepositoryServices::*)(const RWCString&, const char**, int);

struct Protected : CFG_RepositoryServicesImp {
  static size_t write_vector() { return slot_of(&Protected::WriteCFG_SubTreeVectorToFile); }
  static size_t server() { return slot_of(&Protected::GetServerRepository); }
};

struct ProtectedFile : CFG_FileRepositoryBase {
  static size_t hook() { return slot_of(&ProtectedFile::before_path_used); }
  static size_t hook_for_all() { return slot_of(&ProtectedFile::before_all_paths_used); }
  static size_t long_values() { return slot_of(&ProtectedFile::GetTreeNodeWithLongValues); }
  static size_t fill() { return slot_of(&ProtectedFile::FillPathToVec); }
  static size_t find() { return slot_of(&ProtectedFile::FindValue); }
  static size_t root_name() { return slot_of(&ProtectedFile::RemoveRootName); }
};

TEST(Slots, EveryOperationStandsWhereCallersLookForIt) {
  using S = CFG_Services;
  using R = CFG_RepositoryServices;
  const struct {
    size_t slot;
    size_t expected;
  } rows[] = {
      {Derived<CFG_Services>::slots(), 50},
      {Derived<CFG_SubTree>::slots(), 53},
      {Derived<CFG_RepositoryServices>::slots(), 140},
      {Derived<CFG_RepositoryServicesImp>::slots(), 142},
      {Derived<CFG_MemoryRepository>::slots(), 142},
      {Derived<CFG_FileRepository>::slots(), 148},
      {Derived<CFG_SynchronizedFileRepository>::slots(), 148},
      {Derived<CFG_DBRepository>::slots(), 142},
      {Derived<CFG_Repository>::slots(), 144},

      {slot_of(&S::SetValue), 15},
      {slot_of(&S::change_string_with_properties), 25},
      {slot_of(&S::IsItServer), 34},
      {slot_of(&S::SynchronizeSubTree), 39},
      {slot_of(&R::GetNodeName), 50},
      {slot_of(&R::GetCoreProperties), 56},
      {slot_of<RuleRead>(&R::GetSubTreeOnlyWithValuesLong), 64},
      {slot_of(&R::ExportPath), 74},
      {slot_of(&R::Connect), 82},
      {slot_of(&R::GetVendorName), 94},
      {slot_of(&R::GetCfgPass), 98},
      {slot_of(&R::GetMinSeqNumberOfDeletedEntry), 106},
      {slot_of(&R::Rollback), 116},
      {slot_of(&R::GetServerGUID), 129},
      {Protected::server(), 135},
      {slot_of(&R::GetServerSyncID), 136},
      {slot_of(&CFG_RepositoryServicesImp::CFGPerformanceEnabled), 140},
      {Protected::write_vector(), 141},
      {slot_of(&CFG_Repository::EnableExtendedTimeout), 142},
      {slot_of(&CFG_Repository::DisableExtendedTimeout), 143},
      {ProtectedFile::hook(), 142},
      {ProtectedFile::hook_for_all(), 143},
      {ProtectedFile::long_values(), 144},
      {ProtectedFile::fill(), 145},
      {ProtectedFile::find(), 146},
      {ProtectedFile::root_name(), 147},
  };
  for (const auto& row : rows) EXPECT_EQ(row.slot, row.expected) << "row " << &row - rows;
}

}  // namespace
