// Small trees for tests, made from and shown as text.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include <CFG/CFG_SubTree.h>

class Tree_Node;

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

// A tree of (path, text) pairs; an empty text makes a key.
CFG_SubTree tree_of(const char* name,
                    std::initializer_list<std::pair<const char*, const char*>> entries);

// Root, then its children in order, in braces: "k{v=1 sub{w=2} empty{}}".
std::string shown(const Tree_Node& node);
std::string shown(CFG_SubTree& tree);
std::string shown(const SubTreePtr& tree);
