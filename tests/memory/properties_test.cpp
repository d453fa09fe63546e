#include <CFG/CFG_SubTree.h>

#include "out_of_memory.h"

namespace {

// A property is set, or the caller is told that it is not.
void set_property(MemoryShortage& memory) {
  CFG_SubTree services("t");
  int is_done = TRUE;
  memory.Under([&] { is_done = services.SetProperty("scarce", "memory"); });
  EXPECT_EQ(services.GetProperty("scarce"), is_done ? "memory" : "");
}

const OutOfMemoryCase property_cases[] = {{"SetProperty", set_property}};
INSTANTIATE_TEST_SUITE_P(Properties, OutOfMemory, testing::ValuesIn(property_cases),
                         OutOfMemory::NameOf);

}  // namespace
