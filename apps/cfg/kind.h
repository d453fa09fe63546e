// What can stand at a path.
#pragma once

namespace cli {

enum class Kind { NOTHING, KEY, VALUE };

}  // namespace cli
