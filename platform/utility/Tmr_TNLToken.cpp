#include <utility/Tmr_TNLToken.h>

const RWCString Tmr_TNLToken::dummy_name = "dummy_name";
