// Trees from flat records.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tree/Tree_Node.h>

// A tree while its records come in, each with a path relative to the top. Keys on the way that
// have no record are made. Any order is right; it is quick where what lies below a key comes
// together and behind it, as in order of path. Texts are copied once, into their nodes. One
// thread at a time.
class HALVORIA_API Tree_PathBuilder {
 public:
  // What has become of a record: it has its place, or a value is on the way to it, or it has no
  // name, or what is there already is of the other kind.
  enum Outcome { PLACED, BELOW_A_VALUE, WITHOUT_NAME, OF_OTHER_KIND };

  explicit Tree_PathBuilder(Tree_NodePtr top) : m_top(std::move(top)) {}

  // A value when it has a text, else a key. Of two records of one value the later holds. A record
  // that is not placed changes nothing but the keys on its way.
  Outcome Add(std::string_view path, std::string_view text, int is_change = 0);
  // The same for one record whose parent is at hand; `node` becomes the record's.
  static Outcome Put(Tree_Node& parent, std::string_view name, std::string_view text, int is_change,
                     Tree_Node*& node);
  // The tree so far.
  const Tree_NodePtr& Top() const { return m_top; }

 private:
  struct Open {
    Tree_Node* key;
    size_t length;  // of its path, which is a front of m_open_path
  };

  Tree_Node* parent_at(std::string_view path);
  bool is_open_on(const Open& open, std::string_view path) const;

  Tree_NodePtr m_top;
  std::vector<Open> m_open;  // the keys on the way to the last record and, where it is one, itself
  std::string m_open_path;   // of the key that was opened last
};
