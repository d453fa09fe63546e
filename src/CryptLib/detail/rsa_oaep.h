// RSA with OAEP padding.
#pragma once

#include <memory>
#include <vector>

#include <openssl/evp.h>

namespace secm {

struct free_key {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using rsa_key = std::unique_ptr<EVP_PKEY, free_key>;

// A key from its PKCS#1 form in DER, or from the forms that wrap it (SubjectPublicKeyInfo,
// PKCS#8), which OpenSSL unwraps unasked; null when it is none of these.
rsa_key rsa_public_key(const std::vector<unsigned char>& der);
rsa_key rsa_private_key(const std::vector<unsigned char>& der);

// Replaces the content of `out`. False when the primitive refuses.
bool rsa_encrypt(EVP_PKEY& public_key, const unsigned char* in, size_t length,
                 std::vector<unsigned char>& out);
bool rsa_decrypt(EVP_PKEY& private_key, const unsigned char* in, size_t length,
                 std::vector<unsigned char>& out);

}  // namespace secm
