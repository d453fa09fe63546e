// Everything of the services interface that follows from a few primitive operations.
#pragma once

#include <CFG/CFG_Services.h>

// Values with defaults, typed values, search rules, properties and their substitution,
// subtree writes with merging, blobs, and the choice of a node's network address. A
// subclass supplies the reads and writes of its store.
//
// It has no data of its own. The property table, the settings of connection monitoring
// and the switch of path validation belong to the process; SetProperty may run beside
// any reader.
class HALVORIA_API CFG_ServicesImp : public CFG_Services {
 public:
  using CFG_Services::AddOrReplaceSubTree;
  using CFG_Services::GetSubTree;
  using CFG_Services::GetValue;
  using CFG_Services::WriteBlobFromBuffer;
  using CFG_Services::WriteBlobFromFile;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule, int merge,
                                        int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule,
                                        int search_num) override;
  [[nodiscard]] Tree_ValueAndPath* GetValue(RWCString name, const char** search_rule,
                                            int search_num) override;
  RWCString GetValue(RWCString path, RWCString default_value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int SetProperty(RWCString property_name, RWCString property_value) override;
  RWCString GetProperty(RWCString property_name) override;
  RWCString change_string_with_properties(const RWCString& text) override;
  [[nodiscard]] int* GetIntegerValue(RWCString path, int default_value) override;
  [[nodiscard]] int* GetIntegerValue(RWCString path) override;
  [[nodiscard]] int* GetBooleanValue(RWCString path) override;
  [[nodiscard]] String_Arr* Search(RWCString name, RWCString path) override;
  int SetKeyName(RWCString path, RWCString key_name) override;
  int SetIntegerValue(RWCString path, int value) override;
  int AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int IsMappingExist() override;
  int IsItServer() override;
  [[nodiscard]] double* GetDoubleValue(RWCString path, double default_value) override;
  [[nodiscard]] double* GetDoubleValue(RWCString path) override;
  int SetDoubleValue(RWCString path, double value) override;
  int SynchronizeSubTree(String_Arr* paths, const RWCString& path) override;
  bool ReadBlobToUTF8String(const char* path, RWCString& out, RWCString* encoding) override;
  bool ReadBlobToBuffer(const char* path, char** buffer, int& length, RWCString* encoding) override;
  bool ReadBlobFromSearchPathsToBuffer(const char* name, const char** search_rule, int search_num,
                                       char** buffer, int& length, RWCString* encoding) override;
  bool WriteBlobFromBuffer(const char* path, char* buffer, int length, bool base64,
                           RWCString encoding) override;
  bool WriteBlobFromUTF8String(const char* path, RWCString text, bool base64,
                               RWCString encoding) override;
  bool WriteBlobFromFile(const char* path, char* file_name, bool base64) override;

  // --- typed values without an allocation to release ---------------------------------------

  // What the operations with a pointer answer, read by GetValue(path).
  bool GetBooleanValueWrapper(const RWCString& path, bool default_value);
  int GetIntegerValueWrapper(const RWCString& path, int default_value);
  double GetDoubleValueWrapper(const RWCString& path, double default_value);

  // --- network addresses ---------------------------------------------------------------------

  // The address of a node that fits the address families this host listens on; empty when
  // the node has no properties.
  RWCString GetINetAddress(RWCString node_name);
  // The same choice from the values of the key at `path`, which holds a node's properties.
  RWCString GetINetAddressFromPath(RWCString path);
  RWCString GetLocalHostIP();
  RWCString GetLocalHostName();
  RWCString GetIPv6HostIP();  // always empty
  // Takes `[` and a final `]` away; false and no change when the text starts otherwise.
  static bool RemoveIpv6Braces(RWCString& address);
  // Takes "::ffff:" in any case away; false and no change when the text starts otherwise.
  static bool handle_if_ipv6_mapped(RWCString& address);

  // --- paths -----------------------------------------------------------------------------------

  // TRUE when `path` may be written, or when validation is switched off, as it is until
  // InitValidatePathProperties is called. Says in the log, in the name of `caller`, which
  // byte is wrong.
  int IsValidPath(const RWCString& path, const char* caller);
  // Switches validation for the whole process by the value
  // `halvoria\system\applications\central_configuration\validate_path`: off for a text that
  // begins with 0 or is "false", on otherwise.
  void InitValidatePathProperties();
  // Lower-cases a path or a key name as every path is.
  static void tolower(RWCString& text);

  // --- argument checks shared by the operations of all services classes --------------------------

  // TRUE when the rule has entries; else says in the log, in the name of `caller`, what is missing.
  static int CheckSearchRule(const char* caller, const RWCString& path, const char** search_rule,
                             int search_num);
  // TRUE and the root node and its name when `sub_tree` can be written; else says why not.
  static int IsSubTreeValidWithLog(const char* caller, CFG_SubTree* sub_tree, const RWCString& path,
                                   Tree_NodePtr& data, RWCString& key_name);

  // --- monitoring of connections, for the whole process ------------------------------------------

  // "log" is 1, "stack" 2, "exit" 3, anything else 0: off.
  static void SetMonitorConnSupport(const RWCString& mode);
  static void SetMonitorConnActive(bool active);
  static int GetMonitorConnStatus();  // the mode while active, else 0

 protected:
  Tmr_ValHashMap<RWCString, RWCString, Tmr_DefaultHash<RWCString>>& prop() override;

  // Joins the chunks of the blob at `path`. `base64` says that the text has to be decoded;
  // `encoding`, where given, receives the description.
  bool read_chunks(const char* path, RWCString& text, bool& base64, RWCString* encoding);
};
