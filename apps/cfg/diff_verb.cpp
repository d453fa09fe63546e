// diff: what tells two keys apart, each of which stands in the tree or in a file.
#include <tree/Tree_Node.h>

#include "differences.h"
#include "document.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

struct Side {
  std::optional<Document> document;  // of a file
  std::string path;                  // of the key that is compared
  Tree_Node* node = nullptr;
};

Side file_side(const std::string& argument) {
  Side side;
  side.document = read_document(InputFile(argument));
  const Document& document = *side.document;
  side.path =
      document.branches.size() == 1 ? document.branches.front() : document.tree->GetKeyName().str();
  side.node = document.top();
  return side;
}

Side tree_side(Session& session, const std::string& argument) {
  Store& store = session.store();
  Side side;
  side.path = store.path(argument);
  side.node = &store.key(side.path);
  return side;
}

// Against a key of the tree stands the same key of the file, where the file holds it.
void look_for(const std::string& path, Side& file) {
  Tree_Node* root = file.document->tree->GetData().get();
  if (first_of(path) != root->NameView()) return;
  Tree_Node* same =
      root->Find(std::string_view(path).substr(std::min(root->NameView().size() + 1, path.size())));
  if (!same || same->IsLeaf()) return;
  file.node = same;
  file.path = path;
}

}  // namespace

int run_diff(Session& session) {
  const Arguments& arguments = session.arguments;
  const bool is_left_file = names_file(arguments.left), is_right_file = names_file(arguments.right);
  if (arguments.left == "-" && arguments.right == "-") {
    throw Failure(USAGE, "standard input can be one side only");
  }
  Side left = is_left_file ? file_side(arguments.left) : tree_side(session, arguments.left);
  Side right = is_right_file ? file_side(arguments.right) : tree_side(session, arguments.right);
  if (is_left_file && !is_right_file) look_for(right.path, left);
  if (is_right_file && !is_left_file) look_for(left.path, right);

  const auto differences = find_differences(left.node, right.node);
  if (arguments.json) {
    const std::string head = "{\"left\":" + json_line(left.path) +
                             ",\"right\":" + json_line(right.path) + ",\"differences\":";
    JsonRows rows(session.out, head, "}");
    print_differences(rows, differences, left.path.size() + 1, right.path.size() + 1);
    rows.end();
  } else {
    print_differences(session.out, differences);
  }
  return differences.empty() ? DONE : DIFFERENT;
}

}  // namespace cli
