// OpenSSL as the cryptography helper uses it.
#pragma once

#include <string>

#include <openssl/evp.h>

namespace secm {

// A library context of our own with the providers "default" and "legacy", made once and
// never freed: what the machine's settings or the application do to the common one does not
// change what we get. Null when there is no memory for one.
OSSL_LIB_CTX* library_context();

// The cipher of an algorithm; null for those that have none, and after a line in the log
// where OpenSSL has not got it. Owned by the process.
const EVP_CIPHER* cipher_of(int algorithm);

// Why the last call failed.
std::string last_reason();

// The thread's queue of errors is the application's, too: what a scope adds goes with it.
class error_scope {
 public:
  error_scope();
  error_scope(const error_scope&) = delete;
  error_scope& operator=(const error_scope&) = delete;
  ~error_scope();
};

}  // namespace secm
