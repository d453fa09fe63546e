// Compiled as C++17, as the programs of callers may be.
#include "text_comparisons.h"

static_assert(__cplusplus == 201703L);

TEST(RWCString, GoesTogetherWithOtherTextsInCxx17) { expect_texts_go_together(); }
