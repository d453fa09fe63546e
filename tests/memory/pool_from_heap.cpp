// The pools of this program: each slot is an allocation of its own, which can fail.
#define POOL_FROM_HEAP 1
#include <utility/Tmr_PoolAllocator.cpp>
