// The cipher of encrypted synced files.
#pragma once

#include <memory>

#include <strings/RWCString.h>

class SECM_crypt;

namespace cfg {

// RC4 under a key that is derived from the computer's name and the product's version. Nobody who
// can read the files and knows the name is kept from their content by it: it is obfuscation.
std::unique_ptr<SECM_crypt> made_file_cipher();

}  // namespace cfg
