// A symmetric cipher over one message.
#pragma once

#include <cstddef>
#include <memory>

#include <openssl/evp.h>

namespace secm {

enum direction : int { DECRYPT = 0, ENCRYPT = 1 };

// Feed the whole message, then finish: both are false when the cipher refuses. The first
// written() bytes of the output are the result, or part of it.
class cipher_run {
 public:
  // `key` has the length that the cipher wants, `out` room for the message and one block. The
  // initialisation vector is zero.
  cipher_run(const EVP_CIPHER* cipher, direction way, const unsigned char* key, unsigned char* out);

  bool update(const unsigned char* in, size_t length);
  bool finish();
  size_t written() const { return m_written; }

 private:
  struct free_context {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
  };
  std::unique_ptr<EVP_CIPHER_CTX, free_context> m_context;  // null when it could not begin
  unsigned char* m_out;
  size_t m_written = 0;
};

}  // namespace secm
