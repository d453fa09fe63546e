// A row as a file keeps it: so that damage to it is known when it is read.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// In place of a value stands
//
//   value | link | sum | number        the last three of 4 bytes each
//
// link    a sum over the path of the row before, in the order of the table: where rows are lost,
//         with their page or by a way to it that leads astray, the row behind them does not follow
//         on the row before them
// sum     over path and value
// number  over path and sequence number, apart from the other, since most reads pass it over
//
// The first row follows on an empty path. The last row of the table, which no range holds, is there
// for its link alone.
inline constexpr std::string_view SQLITE_END("\xff\xff\xff\xff");

// Of one path, what the sums of its row and the link of the next are made from.
class Sqlite_PathSum {
 public:
  explicit Sqlite_PathSum(std::string_view path) : m_sum(XXH3_64bits(path.data(), path.size())) {}

  uint32_t link() const { return static_cast<uint32_t>(m_sum); }
  uint32_t sum(std::string_view value) const {
    return static_cast<uint32_t>(XXH3_64bits_withSeed(value.data(), value.size(), m_sum));
  }
  uint32_t number(int64_t sequence) const {
    return static_cast<uint32_t>(XXH3_64bits_withSeed(&sequence, sizeof sequence, m_sum));
  }

 private:
  uint64_t m_sum;
};

// What stands in place of a value; views of it.
class Sqlite_Row {
 public:
  explicit Sqlite_Row(std::string_view stored) : m_stored(stored) {}

  static std::string Sealed(uint32_t link, std::string_view path, std::string_view value,
                            int64_t sequence) {
    const Sqlite_PathSum sums(path);
    const uint32_t sealing[] = {link, sums.sum(value), sums.number(sequence)};
    std::string stored(value);
    return stored.append(reinterpret_cast<const char*>(sealing), sizeof sealing);
  }

  bool is_whole(const Sqlite_PathSum& sums) const {
    return m_stored.size() >= kSealing && sealing(1) == sums.sum(value());
  }
  bool has_number(const Sqlite_PathSum& sums, int64_t sequence) const {
    return sealing(2) == sums.number(sequence);
  }
  std::string_view value() const { return m_stored.substr(0, m_stored.size() - kSealing); }
  uint32_t link() const { return sealing(0); }
  std::string linked_to(uint32_t link) const {
    std::string stored(m_stored);
    std::memcpy(stored.data() + stored.size() - kSealing, &link, sizeof link);
    return stored;
  }

 private:
  static constexpr size_t kSealing = 3 * sizeof(uint32_t);

  uint32_t sealing(size_t nth) const {
    uint32_t sum;
    std::memcpy(&sum, m_stored.data() + m_stored.size() - kSealing + nth * sizeof sum, sizeof sum);
    return sum;
  }

  std::string_view m_stored;
};
