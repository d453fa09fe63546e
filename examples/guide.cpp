// The passages of docs/guide.md, in order, as one program.
//   guide TREE.xml
#include <CFG/CFG_Factory.h>
#include <CFG/CFG_IteratorValue.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_TransactionGuard.h>

#include <cstdio>
#include <memory>
#include <string>

static void say_who_we_are(CFG_RepositoryServices* cfg) {
  cfg->SetProperty("CurrUser", "osei");
  cfg->SetProperty("CurrApp", "viewer");
}

static void read(CFG_RepositoryServices* cfg) {
  const RWCString host =
      cfg->GetValue("halvoria\\system\\nodes\\pacs01\\properties\\inet_address", "127.0.0.1");
  const int port = cfg->GetIntegerValueWrapper(
      "halvoria\\system\\nodes\\pacs01\\servers\\server1\\dicom\\port", 104);
  const bool verifies =
      cfg->GetBooleanValueWrapper("halvoria\\system\\applications\\archive\\store\\verify", false);
  std::printf("archive at %s, port %d, %s\n", host.data(), port, verifies ? "verifies" : "trusts");

  std::unique_ptr<CFG_SubTree> nodes(cfg->GetSubTree("halvoria\\system\\nodes"));
  for (int i = 0; nodes && i < nodes->GetSubTreeNum(""); ++i) {
    const std::unique_ptr<CFG_SubTree> node(nodes->GetSubTree("", i));
    std::printf("node %s: %s\n", node->GetKeyName().data(),
                node->GetValue("properties\\inet_address").data());
  }
}

static void substitute(CFG_RepositoryServices* cfg) {
  cfg->SetProperty("station", "PACS02");
  const RWCString address =
      cfg->GetValue("halvoria\\system\\nodes\\<station>\\properties\\inet_address");
  std::printf("<station> at %s\n", address.data());
}

static void search(CFG_RepositoryServices* cfg) {
  const char* rule[] = {"halvoria\\users\\osei", "halvoria\\system\\applications"};
  const std::unique_ptr<Tree_ValueAndPath> layout(cfg->GetValue("viewer\\layout", rule, 2));
  if (layout) std::printf("layout %s from %s\n", layout->GetValue(), layout->GetPath());
  const std::unique_ptr<CFG_SubTree> viewer(cfg->GetSubTree("viewer", rule, TRUE, 2));
  if (viewer) std::printf("viewer has %d keys\n", viewer->GetSubTreeNum(""));
}

static void look_for(CFG_RepositoryServices* cfg) {
  const RWCString dicom =
      cfg->FillPath("halvoria\\system\\nodes\\%\\servers\\%\\dicom", "ae", "PACS01");
  std::printf("PACS01 is %s\n", dicom.data());
}

static int write(CFG_RepositoryServices* cfg) {
  CFG_SubTree servers("servers");
  for (int i = 1; i <= 3; ++i) {
    const std::string name = "server" + std::to_string(i);
    servers.SetValue(RWCString(name + "\\dicom\\ae"), RWCString("READ01_" + std::to_string(i)));
  }
  if (!cfg->StartTransactionUpdate()) return FALSE;
  const int done = cfg->AddOrReplaceSubTree(&servers, "halvoria\\system\\nodes\\read01");
  return cfg->EndTransactionUpdate(!done) && done;
}

static void iterate(CFG_RepositoryServices* cfg) {
  const std::unique_ptr<CFG_SubTree> lists(
      cfg->GetSubTree("halvoria\\users\\marlow\\viewer\\worklists"));
  for (CFG_IteratorValue list(lists.get(), "worklist"); list.is_valid(); ++list) {
    std::printf("%ld. %s\n", list.ordinal(), list.value().data());
  }
}

static void blob(CFG_SubTree& tree) {
  tree.WriteBlobFromUTF8String("system\\banner", "Scheduled maintenance on Sunday.", true, "utf-8");
  RWCString text;
  if (tree.ReadBlobToUTF8String("system\\banner", text, nullptr)) std::printf("%s\n", text.data());
}

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  CFG_SubTree scratch("halvoria");
  CFG_RepositoryServices* cfg =
      CFG_Factory::GetRepositoryServices(&scratch);  // "memory": over a tree of ours
  if (!cfg || !cfg->ImportXmlFileWithType(RWWString::fromUTF8(argv[1]),
                                          CFG_RepositoryServices::CFG_XML_IMPORT_REPLACE))
    return 1;
  say_who_we_are(cfg);
  read(cfg);
  substitute(cfg);
  search(cfg);
  look_for(cfg);
  iterate(cfg);
  blob(scratch);
  if (!write(cfg)) return 1;
  std::printf("%d servers\n", cfg->GetSubTreeNum("halvoria\\system\\nodes\\read01\\servers"));
  ShutdownRepositoryServices();
}
