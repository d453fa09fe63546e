// A memory repository that notes the calls which matter to transactions and comparisons.
#pragma once

#include <string>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>

class RecordingRepository : public CFG_MemoryRepository {
 public:
  using CFG_MemoryRepository::AddOrReplaceSubTree;
  explicit RecordingRepository(CFG_SubTree* tree = nullptr) : CFG_MemoryRepository(tree) {}

  int StartTransaction() override { return noted("start"); }
  int EndTransaction() override { return noted("end"); }
  int Lock() override { return noted("lock"); }
  int UnLock() override { return noted("unlock"); }
  int Rollback() override { return noted("rollback"); }
  int SetValue(const RWCString& path, const RWCString& value) override {
    noted("set " + path.str() + "=" + (value.length() < 20 ? value.str() : "..."));
    return CFG_MemoryRepository::SetValue(path, value);
  }
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override {
    noted("add " + sub_tree->GetKeyName().str() + " to " + path.str());
    return CFG_MemoryRepository::AddOrReplaceSubTree(sub_tree, path);
  }

  std::string calls;  // "a;b;"
  int answer = TRUE;

 private:
  int noted(const std::string& call) {
    calls += call + ';';
    return answer;
  }
};
