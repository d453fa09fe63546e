// The services interface: one view of a configuration tree, whatever holds it.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/T_Bool.h>
#include <tree/String_Arr.h>
#include <tree/Tree_NodePtr.h>
#include <tree/Tree_PathAndValueArray.h>
#include <utility/Tmr_ValHashMap.h>

class CFG_SubTree;

// Reads and writes keys (subtrees) and named string values of one tree, addressed by
// paths: key names joined by single backslashes. A repository takes absolute paths
// (`halvoria\system\nodes`), a subtree handle takes paths relative to its root key, and
// the empty path names that root. `<name>` in a path is replaced by the process property
// of that name, then the path is lower-cased; the text of values keeps its case.
//
// Ownership: every pointer that comes back belongs to the caller, who deletes it (blob
// buffers with delete[]). A subtree given to a write stays the caller's. Whether a
// returned subtree shares nodes with this object is said by the implementing class.
//
// Threads: any thread may call; concurrent reads are safe, and what else is safe is said
// by the implementing class.
//
// Failure: nothing throws for bad input or a failed store. An operation answers with
// FALSE, 0, a null pointer or the empty string, after one log line that says why.
//
// Operations that come in pairs, one virtual with `RWCString&` and one without, do the
// same: the second one lets a literal or a const path be passed.
class HALVORIA_API CFG_Services {
 public:
  virtual ~CFG_Services() = default;

  // --- keys ------------------------------------------------------------------------------

  // The subtree that a search rule finds. A rule is an array of `search_num` path prefixes
  // in order of priority; candidate i is prefix i, a backslash and `name` (the prefix alone
  // when `name` is empty, `name` alone when the prefix is empty). The first candidate that
  // exists is the answer; with `merge` the union of all of them, earlier ones winning.
  // Null when there is none.
  [[nodiscard]] virtual CFG_SubTree* GetSubTree(RWCString name, const char** search_rule, int merge,
                                                int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTree(RWCString name, const char** search_rule,
                                                int search_num) = 0;
  // The key at 0-based position `index` among the keys directly under `path`, null beyond.
  [[nodiscard]] virtual CFG_SubTree* GetSubTree(RWCString& path, int index) = 0;
  // The key at `path`; null when nothing is there or a value is.
  [[nodiscard]] virtual CFG_SubTree* GetSubTree(RWCString& path) = 0;

  // --- values ----------------------------------------------------------------------------

  // The first candidate of the search rule that holds a text: a record of that text and of
  // the rule entry that matched. Null when there is none.
  [[nodiscard]] virtual Tree_ValueAndPath* GetValue(RWCString name, const char** search_rule,
                                                    int search_num) = 0;
  // The text at `path`, or `default_value` when there is none, and when it cannot be read: then
  // the log says so.
  virtual RWCString GetValue(RWCString path, RWCString default_value) = 0;
  // The text of the value at 0-based position `index` among the values directly under `path`.
  virtual RWCString GetValue(RWCString& path, int index) = 0;
  // The text at `path`; empty when nothing is there or a key is.
  virtual RWCString GetValue(const RWCString& path) = 0;
  // The name of the value that GetValue(path, index) reads.
  virtual RWCString GetValueName(RWCString& path, int index) = 0;

  // --- counts and lists ------------------------------------------------------------------

  // Values, and keys, directly under `path`.
  virtual int GetValueNum(RWCString& path) = 0;
  virtual int GetSubTreeNum(RWCString& path) = 0;
  // All keys and values anywhere below `path`, the key at `path` itself not counted.
  virtual int GetSubTreeEntriesCount(const RWCString& path) = 0;
  // One record per value directly under `path`: its text and its name.
  [[nodiscard]] virtual Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path) = 0;
  // The names of the keys directly under `path`.
  [[nodiscard]] virtual String_Arr* GetSubTreePaths(const RWCString& path) = 0;

  // --- writes ----------------------------------------------------------------------------

  // Sets the text of the value at `path`, creating it and the keys on the way. FALSE for an
  // empty text, and where a key is in the way.
  virtual int SetValue(const RWCString& path, const RWCString& value) = 0;
  // Writes a copy of `sub_tree` under the key at `path`, as the child named by its root key.
  // It replaces what is there; with `merge` it is laid over it.
  virtual int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) = 0;
  virtual int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  virtual int DeleteSubTree(const RWCString& path) = 0;  // FALSE when there is no such key
  virtual int DeleteValue(const RWCString& path) = 0;    // TRUE also when nothing is there
  // TRUE when `path` names a key.
  virtual int IsSubTreeExist(const RWCString& path) = 0;
  // Writes only the values of `sub_tree` that were changed in it. Without `merge` they
  // replace the key of that name, and a subtree without changes deletes the key and answers
  // FALSE; with `merge` they are laid over it, and without changes nothing is written.
  virtual int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) = 0;
  virtual int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path) = 0;

  // --- properties of the process -----------------------------------------------------------

  // One table for the whole process; names are case-sensitive. A property is never removed:
  // FALSE for an empty name or an empty value.
  virtual int SetProperty(RWCString property_name, RWCString property_value) = 0;
  virtual RWCString GetProperty(RWCString property_name) = 0;  // empty when not set
  // `text` with its `<name>` placeholders replaced up to the first one that is not set,
  // lower-cased. A replaced text is not searched again.
  virtual RWCString change_string_with_properties(const RWCString& text) = 0;

  // --- typed values ------------------------------------------------------------------------

  // The text read as a decimal number, null when it is missing or not a number; with a
  // default the answer is never null.
  [[nodiscard]] virtual int* GetIntegerValue(RWCString path, int default_value) = 0;
  [[nodiscard]] virtual int* GetIntegerValue(RWCString path) = 0;
  // 1 for "true" in any case, 0 for any other text, null when it is missing.
  [[nodiscard]] virtual int* GetBooleanValue(RWCString path) = 0;

  // --- search and rename ---------------------------------------------------------------------

  // The paths of all keys and values named `name` below the key at `path`; null when the
  // arguments are refused.
  [[nodiscard]] virtual String_Arr* Search(RWCString name, RWCString path) = 0;
  // Renames the key at `path` in place. FALSE, and nothing changed, for a name that is empty, holds
  // a backslash or is a sibling's, and where the store could not keep a path that becomes longer;
  // the root of a repository keeps its name.
  virtual int SetKeyName(RWCString path, RWCString key_name) = 0;

  // --- more writes -----------------------------------------------------------------------------

  virtual int SetIntegerValue(RWCString path, int value) = 0;
  // As AddOrReplaceSubTree with merge, but what is stored wins; FALSE where that is a value.
  virtual int AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  // What the properties `mapping` and `client_or_server` say about this process.
  virtual int IsMappingExist() = 0;
  virtual int IsItServer() = 0;

 protected:
  // Writes the tree itself, not a copy, under the key at `path`. The path has been
  // substituted.
  virtual int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) = 0;

 public:
  // Numbers in any locale's notation. Without a default a missing value reads as 0.0; the
  // answer is never null. Numbers are stored with three decimals.
  [[nodiscard]] virtual double* GetDoubleValue(RWCString path, double default_value) = 0;
  [[nodiscard]] virtual double* GetDoubleValue(RWCString path) = 0;
  virtual int SetDoubleValue(RWCString path, double value) = 0;
  // Brings the given paths of a repository that is synchronized in the background up to date.
  virtual int SynchronizeSubTree(String_Arr* paths, const RWCString& path) = 0;

  // --- blobs -------------------------------------------------------------------------------------

  // A blob is a key that holds a byte run cut into values. `encoding`, where given, receives
  // the stored description. False when the key is missing or a chunk is; then `out` holds
  // the chunks before it.
  virtual bool ReadBlobToUTF8String(const char* path, RWCString& out, RWCString* encoding) = 0;
  // `*buffer` receives a new array of `length` bytes and a NUL after them.
  virtual bool ReadBlobToBuffer(const char* path, char** buffer, int& length,
                                RWCString* encoding) = 0;
  virtual bool ReadBlobFromSearchPathsToBuffer(const char* name, const char** search_rule,
                                               int search_num, char** buffer, int& length,
                                               RWCString* encoding) = 0;
  // Replaces the blob at `path`, which needs at least one backslash. `base64` stores the
  // bytes as base64 text, as is needed for bytes that are not UTF-8 text.
  virtual bool WriteBlobFromBuffer(const char* path, char* buffer, int length, bool base64,
                                   RWCString encoding) = 0;
  virtual bool WriteBlobFromUTF8String(const char* path, RWCString text, bool base64,
                                       RWCString encoding) = 0;
  virtual bool WriteBlobFromFile(const char* path, char* file_name, bool base64) = 0;

 protected:
  // --- what the public operations are built on; paths have been substituted ------------------

  [[nodiscard]] virtual String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                         const RWCString& path) = 0;
  virtual int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) = 0;
  // The node at `path`, null when nothing is there. This one substitutes the path itself.
  virtual Tree_NodePtr GetTreeNode(const RWCString& path) = 0;
  // A map of the process that nothing in the library reads.
  virtual Tmr_ValHashMap<RWCString, RWCString, Tmr_DefaultHash<RWCString>>& prop() = 0;

 public:
  // --- the same for literals and const paths -------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString&& path) { return GetSubTree(path); }
  [[nodiscard]] CFG_SubTree* GetSubTree(const RWCString& path) {
    return GetSubTree(RWCString(path));
  }
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString&& path, int index) {
    return GetSubTree(path, index);
  }
  [[nodiscard]] CFG_SubTree* GetSubTree(const RWCString& path, int index) {
    return GetSubTree(RWCString(path), index);
  }
  RWCString GetValue(RWCString&& path, int index) { return GetValue(path, index); }
  RWCString GetValue(const RWCString& path, int index) { return GetValue(RWCString(path), index); }
  RWCString GetValueName(RWCString&& path, int index) { return GetValueName(path, index); }
  RWCString GetValueName(const RWCString& path, int index) {
    return GetValueName(RWCString(path), index);
  }
  int GetValueNum(RWCString&& path) { return GetValueNum(path); }
  int GetValueNum(const RWCString& path) { return GetValueNum(RWCString(path)); }
  int GetSubTreeNum(RWCString&& path) { return GetSubTreeNum(path); }
  int GetSubTreeNum(const RWCString& path) { return GetSubTreeNum(RWCString(path)); }
  bool WriteBlobFromBuffer(const char* path, const char* buffer, int length, bool base64,
                           const RWCString& encoding) {
    return WriteBlobFromBuffer(path, const_cast<char*>(buffer), length, base64,
                               RWCString(encoding));
  }
  bool WriteBlobFromFile(const char* path, const char* file_name, bool base64) {
    return WriteBlobFromFile(path, const_cast<char*>(file_name), base64);
  }
};
