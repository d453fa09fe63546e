// What stands above the plain lookup: typed getters, counts and positions beside GetValue on
// the same tree, paths before they are looked up, and log lines that nobody wants to see.
#include <atomic>
#include <stdexcept>

#include <unicode/ucasemap.h>

#include <CFG/detail/actual_path.h>
#include <common/clock.h>
#include <common/our_stores.h>
#include <common/suite.h>
#include <common/two_threads.h>
#include <logging/Logger.h>
#include <peers/lower_sse2.h>

namespace bench {
namespace {

using path_list = std::vector<RWCString>;
using maybe = std::optional<double>;

// The second of two runs counts: else who comes second finds the caches filled.
rounds::measure warmed(rounds::measure once) {
  return [=] {
    once();
    return once();
  };
}

// --- getters ---------------------------------------------------------------------------------

// Paths of values whose texts are of one kind, and the same without the first component.
struct value_paths {
  path_list full, below_root;

  value_paths(const records& all, const scale& s, bool wanted(const std::string& text)) {
    records some;
    for (const record& r : all) {
      if (!r.value.empty() && wanted(r.value)) some.push_back(r);
    }
    for (const std::string& path : paths_to_read(some, s.calls, s.hot_paths)) {
      full.emplace_back(path);
      below_root.emplace_back(path.substr(root_cut));
    }
  }
};

bool is_any(const std::string&) { return true; }
bool is_true(const std::string& text) { return text == "true"; }
bool is_integer(const std::string& text) {
  return text.find_first_not_of("0123456789") == text.npos;
}
bool is_decimal(const std::string& text) {
  return text.size() == 5 && text[1] == '.' && text.find_first_not_of("0123456789.") == text.npos;
}

path_list keys_of(const path_list& values) {
  path_list keys;
  for (const RWCString& path : values) keys.push_back(path.subString(0, path.last('\\')));
  return keys;
}

// The positions of values below their keys, so that the same are read by position as by path.
std::vector<int> positions_of(CFG_SubTree& tree, const path_list& values) {
  std::vector<int> positions;
  for (const RWCString& path : values) {
    const RWCString value = tree.change_string_with_properties(path);
    const size_t cut = value.last('\\');
    RWCString key = value.subString(0, cut);
    int position = 0;
    while (tree.GetValueName(key, position) != value.subString(cut + 1)) ++position;
    positions.push_back(position);
  }
  return positions;
}

// What one store is asked. `keys` are those that hold the values of `any`, at `positions`.
struct store_case {
  const char* name;
  CFG_ServicesImp& store;
  path_list &any, &integers, &booleans, &decimals, &keys;
  const std::vector<int>& positions;
};

class getters {
 public:
  getters(store_case& c, report& result) : m_case(c), m_result(result) {}

  // `read` answers whether it found what is there; it does everywhere. `plain` is how GetValue
  // is called in comparison.
  template <class Read, class Plain>
  void add(const char* name, path_list& paths, Read read, path_list& values, const char* peer,
           Plain plain) {
    CFG_ServicesImp& store = m_case.store;
    for (RWCString& path : paths) {
      if (!read(store, path)) throw std::runtime_error(std::string(name) + ", " + path.data());
    }
    const auto ours = m_reads.add(warmed(per_call(paths.size(), [=, &store, &paths] {
      for (RWCString& path : paths) keep(read(store, path));
    })));
    const auto theirs = m_reads.add(warmed(per_call(values.size(), [=, &store, &values] {
      for (RWCString& path : values) {
        const RWCString text = plain(store, path);
        keep(text.data());
      }
    })));
    const claim what = {std::string(name) + ", " + m_case.name, peer, "ns/read", 1.2, {}};
    m_rows.push_back([=, this] { m_result.add(what, m_reads.of(ours), m_reads.of(theirs)); });
  }

  void run(int count) {
    m_reads.run(count);
    for (const auto& row : m_rows) row();
  }

 private:
  store_case& m_case;
  report& m_result;
  rounds m_reads;
  std::vector<std::function<void()>> m_rows;
};

void add_getters(report& result, store_case& c, int count) {
  using store = CFG_ServicesImp;
  using path = RWCString;
  getters rows(c, result);
  const auto held = [&](const char* name, path_list& paths, auto read, path_list& values) {
    rows.add(name, paths, read, values, "GetValue",
             [](store& s, const path& p) { return s.GetValue(p); });
  };
  held(
      "GetIntegerValueWrapper", c.integers,
      [](store& s, path& p) { return s.GetIntegerValueWrapper(p, -1) >= 0; }, c.integers);
  held(
      "GetBooleanValueWrapper", c.booleans,
      [](store& s, path& p) { return s.GetBooleanValueWrapper(p, false); }, c.booleans);
  held(
      "GetDoubleValueWrapper", c.decimals,
      [](store& s, path& p) { return s.GetDoubleValueWrapper(p, -1) >= 0; }, c.decimals);
  held(
      "IsSubTreeExist", c.keys, [](store& s, path& p) { return s.IsSubTreeExist(p) != 0; }, c.any);
  held(
      "GetValueNum", c.keys, [](store& s, path& p) { return s.GetValueNum(p) > 0; }, c.any);
  held(
      "GetSubTreeNum", c.keys, [](store& s, path& p) { return s.GetSubTreeNum(p) >= 0; }, c.any);
  const auto position = [&](const path& key) {
    return c.positions[static_cast<size_t>(&key - c.keys.data())];
  };
  held(
      "GetValue by position", c.keys,
      [=](store& s, path& p) { return !s.GetValue(p, position(p)).isNull(); }, c.any);
  held(
      "GetValueName", c.keys,
      [=](store& s, path& p) { return !s.GetValueName(p, position(p)).isNull(); }, c.any);

  // Operations that take the path by value are mostly given a literal. Those that answer with
  // a number from the heap are compared with a caller who takes one there himself.
  rows.add(
      "GetValue of a literal, default", c.any,
      [](store& s, path& p) { return !s.GetValue(p.data(), "").isNull(); }, c.any,
      "GetValue of a literal", [](store& s, const path& p) { return s.GetValue(p.data()); });
  const auto allocated = [&](const char* name, path_list& paths, auto read) {
    rows.add(name, paths, read, paths, "GetValue of a literal, new number",
             [](store& s, const path& p) {
               const std::unique_ptr<int> number(new int(1));
               keep(*number);
               return s.GetValue(p.data());
             });
  };
  allocated("GetIntegerValue of a literal, default", c.integers, [](store& s, path& p) {
    const std::unique_ptr<int> number(s.GetIntegerValue(p.data(), -1));
    return *number >= 0;
  });
  allocated("GetDoubleValue of a literal, default", c.decimals, [](store& s, path& p) {
    const std::unique_ptr<double> number(s.GetDoubleValue(p.data(), -1));
    return *number >= 0;
  });
  rows.run(count);
}

void add_threads(report& result, store_case& c, int count) {
  if (!two_processors()) return;
  const size_t n = std::min<size_t>(c.integers.size(), 1000);
  rounds reads;
  const auto both = reads.add([&, n]() -> std::vector<double> {
    const shared_cost cost = cost_of_sharing([&, n] {
      for (size_t i = 0; i < n; ++i) keep(c.store.GetIntegerValueWrapper(c.integers[i], -1));
    });
    return {cost.together / static_cast<double>(n), cost.alone / static_cast<double>(n)};
  });
  reads.run(count);
  result.add({std::string("GetIntegerValueWrapper, two threads on the same paths, ") + c.name,
              "the same with one thread", "ns/read", 1.3, 1.1},
             reads.of(both, 0), reads.of(both, 1));
}

void add_stores(report& result, const scale& s) {
  const records all = make_installation(s.hosts);
  value_paths any(all, s, is_any), integers(all, s, is_integer), booleans(all, s, is_true),
      decimals(all, s, is_decimal);
  path_list keys = keys_of(any.full), keys_below = keys_of(any.below_root);

  our_stores ours(all, s);
  const std::vector<int> positions = positions_of(ours.handle, any.below_root);
  store_case stores[] = {
      {"subtree handle", ours.handle, any.below_root, integers.below_root, booleans.below_root,
       decimals.below_root, keys_below, positions},
      {"memory repository", ours.memory, any.full, integers.full, booleans.full, decimals.full,
       keys, positions},
      {"file repository", ours.file, any.full, integers.full, booleans.full, decimals.full, keys,
       positions},
  };
  for (store_case& c : stores) add_getters(result, c, s.many_rounds);
  for (store_case& c : stores) add_threads(result, c, s.few_rounds);
}

// --- texts -----------------------------------------------------------------------------------

constexpr char lower_path[] = "halvoria\\system\\nodes\\ws-17-004211\\properties\\inet_address";
constexpr char mixed_path[] = "Halvoria\\System\\Nodes\\WS-17-004211\\Properties\\Inet_Address";
constexpr char wide_path[] =
    "Halvoria\\System\\Nodes\\WS-17-004211\\Properties\\K\xC3\x9Chlger\xC3\x84t";
constexpr char placeholder_path[] =
    "Halvoria\\System\\Nodes\\<bench_node>\\Properties\\Inet_Address";

// The compiler may not know the text.
std::string_view unknown(const char* text) {
  keep(text);
  return text;
}

rounds::measure our_lowering(const char* text, size_t count) {
  return per_call(count, [=] {
    const std::string_view path = unknown(text);
    for (size_t i = 0; i < count; ++i) {
      const cfg::actual_path actual(path);
      keep(actual.view().data());
    }
  });
}

rounds::measure sse2_lowering(const char* text, size_t count) {
  return per_call(count, [=] {
    const std::string_view path = unknown(text);
    char lowered[256];
    for (size_t i = 0; i < count; ++i) {
      const lower_sse2 done(path.data(), lowered, path.size());
      keep(done.has_mark);
      keep(done.has_high);
      keep(&lowered[0]);
    }
  });
}

rounds::measure icu_lowering(const char* text, size_t count) {
  return per_call(count, [=] {
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* const map = ucasemap_open("", 0, &status);
    const std::string_view path = unknown(text);
    char lowered[256];
    for (size_t i = 0; i < count; ++i) {
      keep(ucasemap_utf8ToLower(map, lowered, sizeof lowered, path.data(),
                                static_cast<int32_t>(path.size()), &status));
      keep(&lowered[0]);
    }
    ucasemap_close(map);
  });
}

void add_texts(report& result, const scale& s) {
  CFG_SubTree("").SetProperty("bench_node", "WS-17-004211");
  if (cfg::actual_path(mixed_path).view() != lower_path ||
      cfg::actual_path(placeholder_path).view() != lower_path) {
    throw std::runtime_error("wrong path");
  }
  const size_t n = s.calls * 10;
  rounds texts;
  struct {
    const char* subject;
    const char* text;
    const char* peer;
    rounds::measure (*lower)(const char*, size_t);
    maybe target, stretch;
    rounds::id ours = 0, theirs = 0;
  } rows[] = {
      {"path as it is looked up, no capitals", lower_path, lower_sse2::name, sse2_lowering, 2.0,
       1.2},
      {"path as it is looked up, capitals", mixed_path, lower_sse2::name, sse2_lowering, 2.0, 1.2},
      {"path as it is looked up, placeholder",
       placeholder_path,
       lower_sse2::name,
       sse2_lowering,
       {},
       {}},
      {"path as it is looked up, beyond ASCII",
       wide_path,
       "ICU ucasemap_utf8ToLower",
       icu_lowering,
       1.1,
       {}},
  };
  for (auto& row : rows) {
    row.ours = texts.add(our_lowering(row.text, n));
    row.theirs = texts.add(row.lower(row.text, n));
  }
  texts.run(s.many_rounds);
  for (const auto& row : rows) {
    result.add({row.subject, row.peer, "ns/path", row.target, row.stretch}, texts.of(row.ours),
               texts.of(row.theirs));
  }
}

// --- log lines -------------------------------------------------------------------------------

constexpr Log_Logger logger("bench/services_bench", 502);

std::atomic<unsigned char> gate{0};

// A line of a level that is off. Where it is on, the benchmark would not end.
void add_log_lines(report& result, const scale& s) {
  const size_t n = s.calls * 10;
  TmrGLog.SetModuleLevel(502, LOG_LEVEL_WARNING);
  const RWCString path(lower_path);
  rounds lines;
  const auto ours = lines.add(per_call(n, [&] {
    for (size_t i = 0; i < n; ++i) {
      logger.trace("Start %s : input path <%s> , attempt %Iu\n", "bench", path, i);
      keep(i);
    }
  }));
  const auto floor = lines.add(per_call(n, [&] {
    for (size_t i = 0; i < n; ++i) {
      if (gate.load(std::memory_order_relaxed)) throw std::runtime_error(path.data());
      keep(i);
    }
  }));
  lines.run(s.many_rounds);
  const samples measured = lines.of(ours);
  const char* subject = "log line of a level that is off";
  result.add({subject, "5 ns", "ns/line", 1.0, 0.4}, measured, samples(measured.size(), 5.0));
  result.add({subject, "a relaxed load and a branch", "ns/line", {}, {}}, measured,
             lines.of(floor));
}

}  // namespace

report services_suite(const scale& s) {
  report result;
  add_texts(result, s);
  add_log_lines(result, s);
  add_stores(result, s);
  return result;
}

}  // namespace bench
