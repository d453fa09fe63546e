// A tree in the datagrid: how its records lie there, and what changes them.
//
// The grid GRID has three keys of the store, which expire together unless a feeder keeps them:
//   halvoria:{GRID}:records   a hash from full paths to records
//   halvoria:{GRID}:order     the same paths in the order of their bytes, as a sorted set
//   halvoria:{GRID}:marked    a hash from the paths of marked values to the number of the mark
// While everything is fed anew the same three with ":new" behind, which then take their place.
//
// A record is a text:
//   "SEQ k"        a key
//   "SEQ v" TEXT   a value
//   "?N"           not known, whoever asks asks the repository; N is the number of the mark
// SEQ is the number of the store's last change when the record was read there.
//
// Five fields of `records` are no paths, for which a NUL stands before their names:
//   \0id      which store, and which paths of it, are here whole
//   \0fed     the number up to which changes are
//   \0turn    a word drawn when all was fed anew
//   \0n       how many marks there have been
//   \0marks   "N PATH\0" of each subtree that is not known; the empty path is everything
//
// Who writes to the store marks here what it wrote, which takes it out of sight. The feeder puts
// records back that it has read from the store after it had seen the mark; a record that was read
// before leaves the mark alone. So what was overwritten stays overwritten, however late a mark or a
// record arrives. Changes apply to what is fed up to the number where they begin, and to nothing
// else, so that feeders and grids that were away disturb nobody.
//
// An absent record says nothing. The grid may drop keys as it likes: a subtree is answered when all
// that belongs to it is there, and `records` and `order` have as many paths.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <datagrid/Grid_Store.h>

// Names of the keys of one grid.
struct Grid_Keys {
  explicit Grid_Keys(const std::string& grid);
  std::string records, order, marked, new_records, new_order, new_marked;
};

struct Grid_Record {
  enum Kind : uint8_t { UNKNOWN, KEY, VALUE };
  Kind kind = UNKNOWN;
  std::string_view value;

  // False when the text is none.
  bool read(std::string_view text);
};

constexpr std::string_view GRID_MARKS("\0marks", 6);

// Whether the marks of subtrees hide the path.
bool Grid_IsMarked(std::string_view marks, std::string_view path);
// "N PATH\0" one after the other. False when they are not.
bool Grid_ReadMarks(std::string_view marks,
                    std::vector<std::pair<int64_t, std::string_view>>& read);

// Takes "LENGTH:TEXT" off the front. False when there is none.
bool Grid_TakeText(std::string_view& packed, std::string_view& text);

// Scripts that the grid runs, each with its keys and what it is given.
namespace grid_scripts {
extern const char READ_TREE[];   // records order | path, most entries, most bytes
extern const char MARK_VALUE[];  // records order marked, and those of new | path
extern const char MARK_TREE[];   // the same
extern const char LOOK[];        // records order marked | ms to keep them, id, last number
// records order marked | turn, from, to, marks seen, ms, changes
extern const char CHANGE[];
extern const char DROP[];    // records order marked | turn, fed
extern const char START[];   // those of new | turn, ms, turn that it may replace
extern const char APPEND[];  // those of new | turn, ms, path, record, ...
extern const char FINISH[];  // records order marked, those of new | turn, id, fed, ms
}  // namespace grid_scripts
