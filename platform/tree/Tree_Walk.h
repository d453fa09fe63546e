// Goes through a tree in tree order: each key before its children, children in order.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tree/Tree_Node.h>

// A cursor over the nodes of a tree, on its top node at first, or over those below a key. Keeps its
// way on the heap, so depth costs no stack. The tree must not change meanwhile.
class Tree_Walk {
 public:
  explicit Tree_Walk(Tree_Node* top) : m_node(top) {}
  // The children of a node and what is below them; NULL of a value, which has none.
  explicit Tree_Walk(const Tree_ChildList* children) { enter(children); }

  // NULL past the end.
  Tree_Node* operator*() const { return m_node; }
  Tree_Node* operator->() const { return m_node; }
  explicit operator bool() const { return m_node != nullptr; }
  // 0 for the top node, 1 for its children.
  size_t Depth() const { return m_open.size(); }

  void Next() { enter(m_node->Children()); }

 private:
  void enter(const Tree_ChildList* children) {
    if (children) m_open.push_back({children, 0});
    while (!m_open.empty()) {
      Open& open = m_open.back();
      const uint32_t place = open.list->next(open.place);
      if (place != Tree_ChildList::npos) {
        open.place = place + 1;
        m_node = open.list->at(place).get();
        return;
      }
      m_open.pop_back();
    }
    m_node = nullptr;
  }

  struct Open {
    const Tree_ChildList* list;
    uint32_t place;
  };
  Tree_Node* m_node = nullptr;
  std::vector<Open> m_open;
};

// The same with the path of each node at hand.
class Tree_PathsWalk {
 public:
  // `prefix` stands before the name of the top node, joined by a backslash unless empty.
  Tree_PathsWalk(Tree_Node* top, std::string_view prefix) : m_walk(top), m_path(prefix) {
    if (top) enter();
  }

  Tree_Node* operator*() const { return *m_walk; }
  Tree_Node* operator->() const { return *m_walk; }
  explicit operator bool() const { return static_cast<bool>(m_walk); }
  size_t Depth() const { return m_walk.Depth(); }
  // Valid until Next.
  const std::string& Path() const { return m_path; }

  void Next() {
    m_walk.Next();
    if (!m_walk) return;
    m_path.resize(m_lengths[m_walk.Depth() - 1]);
    enter();
  }

 private:
  void enter() {
    if (!m_path.empty()) m_path += '\\';
    m_path += m_walk->NameView();
    m_lengths.resize(m_walk.Depth());
    m_lengths.push_back(m_path.size());
  }

  Tree_Walk m_walk;
  std::string m_path;
  std::vector<size_t> m_lengths;  // of the path of the open node at each depth
};
