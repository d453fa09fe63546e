#include <CryptLib/detail/cipher_run.h>

#include <algorithm>

namespace secm {

cipher_run::cipher_run(const EVP_CIPHER* cipher, direction way, const unsigned char* key,
                       unsigned char* out)
    : m_context(EVP_CIPHER_CTX_new()), m_out(out) {
  static constexpr unsigned char zero_vector[EVP_MAX_IV_LENGTH] = {};
  if (m_context && !EVP_CipherInit_ex2(m_context.get(), cipher, key, zero_vector, way, nullptr)) {
    m_context.reset();
  }
}

bool cipher_run::update(const unsigned char* in, size_t length) {
  constexpr size_t piece = size_t{1} << 30;  // the cipher library counts in int
  for (size_t from = 0; m_context && from < length; from += piece) {
    const auto count = static_cast<int>(std::min(piece, length - from));
    int written = 0;
    if (!EVP_CipherUpdate(m_context.get(), m_out + m_written, &written, in + from, count)) {
      return false;
    }
    m_written += static_cast<size_t>(written);
  }
  return m_context != nullptr;
}

bool cipher_run::finish() {
  int written = 0;
  if (!EVP_CipherFinal_ex(m_context.get(), m_out + m_written, &written)) return false;
  m_written += static_cast<size_t>(written);
  return true;
}

}  // namespace secm
