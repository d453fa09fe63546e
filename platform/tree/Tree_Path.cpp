#include <tree/Tree_Path.h>

RWCString Tree_Path::GetRoot() const {
  std::string_view root;
  Tree_PathWalk(m_text).Next(root);
  return root;
}

int Tree_Path::IsOnlyRoot() const {
  Tree_PathWalk walk(m_text);
  std::string_view component;
  return walk.Next(component) && !walk.Next(component);
}
