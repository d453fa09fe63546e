#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <tree/Tree_Node.h>

namespace {

// The same list as a plain vector, against which every answer is compared.
struct Model {
  struct Child {
    std::string name;
    bool is_key;
  };
  std::vector<Child> children;

  std::vector<std::string> names(Tree_ChildList::Kind kind) const {
    std::vector<std::string> out;
    for (const Child& c : children) {
      if (kind == Tree_ChildList::ANY || (kind == Tree_ChildList::KEYS) == c.is_key)
        out.push_back(c.name);
    }
    return out;
  }
};

Tree_NodePtr make(const std::string& name, bool is_key) {
  return is_key ? new Tree_Node(name) : new Tree_Node(name, "text", 0);
}

void compare(const Tree_ChildList& list, const Model& model) {
  for (const auto kind : {Tree_ChildList::ANY, Tree_ChildList::KEYS, Tree_ChildList::VALUES}) {
    const std::vector<std::string> names = model.names(kind);
    ASSERT_EQ(list.count(kind), names.size());
    for (uint32_t i = 0; i < names.size(); ++i) {
      const uint32_t place = list.select(kind, i);
      ASSERT_EQ(list.at(place)->NameView(), names[i]);
      ASSERT_EQ(list.find(Tree_Hash::Text(names[i]), names[i]), place);
    }
    ASSERT_EQ(list.select(kind, static_cast<uint32_t>(names.size())), Tree_ChildList::npos);
  }
  size_t seen = 0;
  for (uint32_t p = list.next(0); p != Tree_ChildList::npos; p = list.next(p + 1)) {
    ASSERT_EQ(list.at(p)->NameView(), model.children[seen++].name);
  }
  ASSERT_EQ(seen, model.children.size());
}

class Agreement : public testing::TestWithParam<int> {};

TEST_P(Agreement, WithAPlainVectorThroughRandomChanges) {
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  Tree_ChildList list;
  Model model;
  int serial = 0;
  // Grows and shrinks in turns, through the border between the two layouts and back.
  for (int step = 0; step < 3000; ++step) {
    const size_t limit = step / 500 % 2 ? 5 : static_cast<size_t>(GetParam());
    const size_t n = model.children.size();
    if (n < limit || (n > 0 && below(10) < 2)) {
      const std::string name = "n" + std::to_string(serial++);
      const bool is_key = below(3) == 0;
      list.append(Tree_Hash::Text(name), is_key, make(name, is_key));
      model.children.push_back({name, is_key});
    } else if (n > 0 && below(4) == 0) {
      const size_t i = below(n);
      const std::string name = "r" + std::to_string(serial++);
      const uint32_t place = list.select(Tree_ChildList::ANY, static_cast<uint32_t>(i));
      list.at(place)->SetKeyName(name);
      list.rename(place, Tree_Hash::Text(name));
      model.children[i].name = name;
    } else if (n > 0) {
      const size_t i = below(n);
      const Tree_NodePtr taken =
          list.take(list.select(Tree_ChildList::ANY, static_cast<uint32_t>(i)));
      ASSERT_EQ(taken->NameView(), model.children[i].name);
      model.children.erase(model.children.begin() + static_cast<long>(i));
    }
    if (step % 97 == 0) compare(list, model);
  }
  const bool removed =
      list.remove_if([](const Tree_Node& child) { return child.NameView().back() % 2 == 0; });
  const size_t before = model.children.size();
  std::erase_if(model.children, [](const Model::Child& c) { return c.name.back() % 2 == 0; });
  EXPECT_EQ(removed, before != model.children.size());
  compare(list, model);
  list.remove_if([](const Tree_Node&) { return true; });
  compare(list, {});
}

INSTANTIATE_TEST_SUITE_P(Sizes, Agreement, testing::Values(3, 15, 17, 40, 200, 1000));

// Children that stand in a row behind their key are found without the list, others by it.
TEST(ChildAt, FollowsTheListThroughRandomChanges) {
  std::mt19937 random(7);
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  for (int round = 0; round < 300; ++round) {
    Tree_NodePtr key = new Tree_Node("key");
    const Tree_NodePtr other = new Tree_Node("other");
    int serial = 0;
    for (int step = 0; step < 40; ++step) {
      const int n = key->GetChildCount();
      const std::string fresh = "n" + std::to_string(serial++);
      Tree_Node* added = nullptr;
      switch (n == 0 ? 0 : below(12)) {
        case 7:
          key->Remove(Tree_NodePtr(key->GetChildAt(below(n))));
          break;
        case 8:
          key->GetChildAt(below(n))->SetKeyName(fresh);
          break;
        case 9:
          key->Put("", new Tree_Node(key->GetChildAt(below(n))->NameView(), fresh, 0));
          break;
        case 10:
          if (n > 1) other->MoveHere(*key, below(n));
          added = key->AddKey(fresh);
          if (other->GetChildCount() > 0) key->MoveHere(*other, 0);
          break;
        case 11:
          key = below(2) ? key->DuplicateFromHereDown(true) : Tree_Node::Merge(key, other);
          break;
        default:
          added = below(8) ? key->AddValue(fresh, fresh, 0) : key->AddKey(fresh);
      }
      if (added && !added->IsLeaf() && below(2)) added->AddValue("below", "text", 0);
      std::vector<const Tree_Node*> children[3];
      for (int i = 0; i < key->GetChildCount(); ++i) {
        const Tree_Node* child = key->GetChildAt(i).get();
        for (const auto kind : {Tree_ChildList::ANY,
                                child->IsLeaf() ? Tree_ChildList::VALUES : Tree_ChildList::KEYS}) {
          ASSERT_EQ(key->ChildAt(kind, static_cast<int>(children[kind].size())), child);
          children[kind].push_back(child);
        }
      }
      for (const auto kind : {Tree_ChildList::ANY, Tree_ChildList::KEYS, Tree_ChildList::VALUES}) {
        ASSERT_EQ(key->ChildAt(kind, static_cast<int>(children[kind].size())), nullptr);
        ASSERT_EQ(key->ChildAt(kind, -1), nullptr);
      }
    }
  }
}

}  // namespace
