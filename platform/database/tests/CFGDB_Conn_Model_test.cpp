#include <database/tests/Test_Database.h>

#include <map>
#include <random>

// Random changes, done to the database and to a map beside it: after each, both must hold the
// same, and a client that only asks for what changed must have the same, too.

namespace {

class Model {
 public:
  explicit Model(unsigned seed) : m_random(seed) {}

  size_t below(size_t count) { return m_random() % count; }
  std::string path() {
    static const char* const names[] = {"a", "a-", "a]", "b", "b b", "c"};
    std::string path = "t";
    for (size_t depth = below(4); depth-- > 0;) path += std::string("\\") + names[below(6)];
    return path;
  }
  std::string text() { return std::to_string(below(4)); }

  bool is_value(const std::string& path) const {
    const auto row = rows.find(path);
    return row != rows.end() && !row->second.empty();
  }
  bool is_key(const std::string& path) const {
    const auto row = rows.find(path);
    return row != rows.end() && row->second.empty();
  }
  bool make_keys(const std::string& path) {
    for (size_t cut = 0; cut != path.npos;) {
      cut = path.find('\\', cut + 1);
      if (is_value(path.substr(0, cut))) return false;
    }
    for (size_t cut = 0; cut != path.npos;) {
      cut = path.find('\\', cut + 1);
      rows.try_emplace(path.substr(0, cut));
    }
    return true;
  }
  bool set(const std::string& path, const std::string& text) {
    const size_t cut = path.rfind('\\');
    if (is_key(path) || (cut != path.npos && !make_keys(path.substr(0, cut)))) return false;
    rows[path] = text;
    return true;
  }
  void remove(const std::string& path) {
    for (auto row = rows.begin(); row != rows.end();) {
      const bool is_below = row->first == path || row->first.rfind(path + "\\", 0) == 0;
      row = is_below ? rows.erase(row) : std::next(row);
    }
  }

  std::map<std::string, std::string> rows;

 private:
  std::mt19937 m_random;
};

}  // namespace

class DatabaseModel : public Database {
 protected:
  void change(Model& model) {
    const std::string path = model.path(), text = model.text();
    bool is_done = true;
    int result = CFGDB_Conn::OK;
    switch (model.below(6)) {
      case 0:
      case 1:
        is_done = model.set(path, text);
        result = set(path, text);
        break;
      case 2:
        is_done = model.make_keys(path);
        result = m_conn->CreatePath(path, 1, true);
        break;
      case 3:
        if (model.is_value(path)) model.rows.erase(path);
        result = m_conn->RemoveLeafLine(path, 1);
        break;
      case 4:
        if (!model.below(3)) return;
        model.remove(path);
        result = m_conn->RemoveSubTree(path, 1, true);
        break;
      case 5:
        is_done = write_tree(model, path, result);
    }
    EXPECT_EQ(result == CFGDB_Conn::OK, is_done) << path << ": " << m_log.last();
  }

  bool write_tree(Model& model, const std::string& path, int& result) {
    Model tree(static_cast<unsigned>(model.below(1000)));
    for (size_t i = model.below(6); i-- > 0;) tree.set(tree.path(), tree.text());
    std::map<std::string, std::string> rows = {{path, tree.is_value("t") ? tree.rows["t"] : ""}};
    for (const auto& [name, text] : tree.rows) rows[path + name.substr(1)] = text;
    result = write({rows.begin(), rows.end()});
    const size_t cut = path.rfind('\\');
    if (cut != path.npos && !model.make_keys(path.substr(0, cut))) return false;
    model.remove(path);
    model.rows.merge(rows);
    return true;
  }

  void expect_same(const Model& model) {
    std::vector<std::string> expected;
    for (const auto& [path, value] : model.rows) {
      expected.push_back(path + (value.empty() ? "" : "=" + value));
    }
    ASSERT_EQ(query(""), expected);
  }

  // What a client does that has everything up to a number.
  void synchronise(std::map<std::string, std::string>& copy, std::string& local) {
    for (const std::string& path : query("", false, local.c_str(), true)) copy.erase(path);
    for (const std::string& row : query("", false, local.c_str())) {
      const size_t cut = row.find('=');
      copy[row.substr(0, cut)] = cut == row.npos ? "" : row.substr(cut + 1);
    }
    local = m_conn->GetMaxSeqNumber().str();
  }
};

TEST_P(DatabaseModel, HoldsWhatAMapHolds) {
  Model model(7);
  std::map<std::string, std::string> copy;
  std::string local = "0";
  for (int step = 0; step < 600 && !HasFailure(); ++step) {
    const bool is_taken_back = !model.below(8);
    const auto before = model.rows;
    if (is_taken_back) m_conn->SetAutoCommit(0);
    for (size_t i = 1 + model.below(4); i-- > 0;) change(model);
    if (is_taken_back) {
      m_conn->RollBack(0);
      m_conn->SetAutoCommit(1);
      model.rows = before;
    }
    expect_same(model);
    if (!model.below(5)) {
      synchronise(copy, local);
      ASSERT_EQ(copy, model.rows);
    }
  }
  std::string reason;
  EXPECT_TRUE(m_conn->CheckIntegrity(reason)) << reason;
}

OVER_EVERY_STORE(DatabaseModel);
