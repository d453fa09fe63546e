#include <SECM/SECM_crypt.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>

#include <openssl/crypto.h>

#include <CryptLib/detail/buffer_header.h>
#include <CryptLib/detail/cipher_run.h>
#include <CryptLib/detail/crypto_library.h>
#include <CryptLib/detail/rsa_oaep.h>
#include <SECM/SECM_base.h>
#include <logging/Logger.h>
#include <utility/Tmr_Base64Utils.h>

namespace {

constexpr Log_Logger logger("src/CryptLib/SECM_crypt", 197);

using byte_span = std::span<const unsigned char>;

// Also where the bytes are never read again, which a plain fill does not promise.
template <class Bytes>
void wipe(Bytes& bytes) {
  OPENSSL_cleanse(bytes.data(), bytes.size());
  bytes.clear();
}

std::vector<unsigned char> decoded_key(const std::string& key_text) {
  RWCString text(key_text);
  int length = 0;
  const std::unique_ptr<char[]> bytes(Tmr_Base64Utils::Decode(text, &length));
  std::vector<unsigned char> key(bytes.get(), bytes.get() + length);
  if (bytes) OPENSSL_cleanse(bytes.get(), static_cast<size_t>(length));
  if (!text.isNull()) OPENSSL_cleanse(&text[0], text.length());
  return key;
}

// The content does not matter: it is neither copied nor cleared.
void make_room(std::vector<unsigned char>& out, size_t size) {
  if (size > out.capacity()) out.clear();
  out.resize(size);
}

size_t block_size(const EVP_CIPHER* cipher) {
  return static_cast<size_t>(EVP_CIPHER_get_block_size(cipher));
}

// What holds for every operation: its begin and end are in the log, nothing throws, no error
// is left in the thread's queue, and of a failed one no result remains.
template <class Work>
bool run(const char* operation, std::vector<unsigned char>& out, const Work& work) {
  KestralLogTracer tracer(operation);
  const secm::error_scope errors;
  bool is_done = false;
  try {
    is_done = work();
  } catch (const std::exception& fault) {
    logger.error("%s: ended early: %s\n", operation, fault.what());
  }
  if (is_done) {
    tracer.Succeed();
  } else {
    wipe(out);
  }
  return is_done;
}

// Of a buffer with a header; empty, after a line in the log, where there is none.
byte_span ciphertext_in(byte_span buffer) {
  if (!buffer.empty() && buffer[0] != secm::header_version) {
    logger.error("symmetricDecryption Error! - incompatible buffer version <%x>.\n", buffer[0]);
    return {};
  }
  const bool has_header = buffer.size() >= secm::header_size;
  const uint64_t length = has_header ? secm::ciphertext_length(buffer.data()) : 0;
  logger.trace("symmetricDecryption - Input Buffer size (%u),  internal buffer size (%u).\n",
               buffer.size(), length);
  if (length == 0 || length > buffer.size() - secm::header_size) {
    logger.error("symmetricDecryption Error! - invalid buffer, insize is %d and bufsize is %d.\n",
                 buffer.size(), length);
    return {};
  }
  return buffer.subspan(secm::header_size, length);
}

}  // namespace

SECM_crypt::SECM_crypt(int algorithm, std::string key_spec) : m_algorithm(algorithm) {
  try {
    const size_t mark = key_spec.find('#');
    if (mark != key_spec.npos) m_key_name = key_spec.substr(0, mark);
    m_key_text = key_spec.substr(mark + 1);  // from the begin where there is no mark
    m_key = decoded_key(m_key_text);
  } catch (const std::exception& fault) {
    logger.error("SECM_crypt: the key cannot be taken: %s\n", fault.what());
  }
  wipe(key_spec);
}

SECM_crypt::~SECM_crypt() {
  wipe(m_key);
  wipe(m_key_text);
}

bool SECM_crypt::encrypt(const unsigned char* in, unsigned int length,
                         std::vector<unsigned char>& out, bool with_header) {
  return run("SECM_crypt::encrypt", out, [&] {
    if (!has_key()) {
      return logger.reject_at(LOG_LEVEL_TRACE, false, "Fail to encrypt: Invalid key.\n");
    }
    if (is_rsa()) return assymmetricEncryption(in, length, out);
    return select_cipher() && symmetricEncryption(in, length, out, with_header);
  });
}

bool SECM_crypt::decrypt(const unsigned char* in, unsigned int length,
                         std::vector<unsigned char>& out, bool with_header) {
  return run("SECM_crypt::decrypt", out, [&] {
    if (!has_key()) {
      return logger.reject_at(LOG_LEVEL_TRACE, false, "Fail to Decrypt: Invalid key.\n");
    }
    if (is_rsa()) return assymmetricDecryption(in, length, out);
    return select_cipher() && symmetricDecryption(in, length, out, with_header);
  });
}

bool SECM_crypt::has_key() const {
  return !m_key.empty() && m_algorithm >= DES_EDE2 && m_algorithm <= RC4;
}

bool SECM_crypt::is_rsa() const {
  return m_algorithm == RSA_PUBLIC_KEY || m_algorithm == RSA_PRIVATE_KEY;
}

bool SECM_crypt::select_cipher() {
  m_cipher = secm::cipher_of(m_algorithm);
  return m_cipher != nullptr;
}

bool SECM_crypt::is_key_long_enough() const {
  const int needed = EVP_CIPHER_get_key_length(m_cipher);
  return m_key.size() >= static_cast<size_t>(needed) ||
         logger.reject(false, "Key is too small. Algorithm length: %d, key length: %d\n", needed,
                       m_key.size());
}

bool SECM_crypt::symmetricEncryption(const unsigned char* in, unsigned int length,
                                     std::vector<unsigned char>& out, bool with_header) {
  if (!in || length == 0) {
    return logger.reject(false, "symmetricEncryption Error! - called with NULL or empty buffer.\n");
  }
  const size_t header = with_header ? secm::header_size : 0;
  uint64_t size = uint64_t{header} + length + block_size(m_cipher);
  size += size % 2;
  if (size > UINT_MAX) {  // decrypt could not be given all of it
    return logger.reject(false, "symmetricEncryption Error! - %u bytes are too many.\n", length);
  }
  if (!is_key_long_enough()) return false;

  make_room(out, size);
  secm::cipher_run cipher(m_cipher, secm::ENCRYPT, m_key.data(), out.data() + header);
  bool is_done = cipher.update(in, length);
  if (is_done) logger.trace("symmetricEncryption - Final step....\n");
  is_done = is_done && cipher.finish();
  if (!is_done) {
    return logger.reject(false, "symmetricEncryption Error! - %s.\n", secm::last_reason());
  }

  out.resize(header + cipher.written());
  if (with_header) {
    std::ranges::copy(secm::make_header(cipher.written(), m_key_name), out.begin());
    out.resize(size);  // what stands behind the ciphertext is zeros, and nothing older
  }
  return true;
}

bool SECM_crypt::symmetricDecryption(const unsigned char* in, unsigned int length,
                                     std::vector<unsigned char>& out, bool with_header) {
  if (!in) {
    return logger.reject(false, "symmetricDecryption Error! - called with NULL buffer.\n");
  }
  const byte_span buffer(in, length), ciphertext = with_header ? ciphertext_in(buffer) : buffer;
  if (with_header && ciphertext.empty()) return false;
  if (!is_key_long_enough()) return false;

  make_room(out, ciphertext.size() + block_size(m_cipher));
  secm::cipher_run cipher(m_cipher, secm::DECRYPT, m_key.data(), out.data());
  bool is_done = cipher.update(ciphertext.data(), ciphertext.size());
  if (is_done) logger.trace("symmetricDecryption - Final step....\n");
  is_done = is_done && cipher.finish();
  if (is_done) {
    out.resize(cipher.written());
    return true;
  }

  logger.error("symmetricDecryption Error! - %s.\n", secm::last_reason());
  if (with_header && secm::key_name_in(in) != secm::key_name_as_written(m_key_name)) {
    logger.error(
        "symmetricDecryption Error! - incompatible key, buffer encrypted with (%s) while try to decrypt with (%s).\n",
        secm::key_name_in(in), m_key_name);
  }
  return false;
}

bool SECM_crypt::assymmetricEncryption(const unsigned char* in, unsigned int length,
                                       std::vector<unsigned char>& out) {
  if (!in) {
    return logger.reject(false, "assymmetricEncryption Error! - called with NULL buffer.\n");
  }
  if (m_algorithm != RSA_PUBLIC_KEY) {
    return logger.reject(
        false, "assymmetricEncryption Error! - OAEP padding needs a public key to encrypt.\n");
  }
  const secm::rsa_key key = secm::rsa_public_key(m_key);
  if (!key) {
    return logger.reject(false,
                         "assymmetricEncryption Error! - the key is no RSA public key in DER.\n");
  }
  return secm::rsa_encrypt(*key, in, length, out) ||
         logger.reject(false, "assymmetricEncryption Error! - %s.\n", secm::last_reason());
}

bool SECM_crypt::assymmetricDecryption(const unsigned char* in, unsigned int length,
                                       std::vector<unsigned char>& out) {
  if (!in) {
    return logger.reject(false, "assymmetricDecryption Error! - called with NULL buffer.\n");
  }
  if (m_algorithm != RSA_PRIVATE_KEY) {
    return logger.reject(
        false, "assymmetricDecryption Error! - OAEP padding needs a private key to decrypt.\n");
  }
  const secm::rsa_key key = secm::rsa_private_key(m_key);
  if (!key) {
    return logger.reject(false,
                         "assymmetricDecryption Error! - the key is no RSA private key in DER.\n");
  }
  return secm::rsa_decrypt(*key, in, length, out) ||
         logger.reject(false, "assymmetricDecryption Error! - %s.\n", secm::last_reason());
}
