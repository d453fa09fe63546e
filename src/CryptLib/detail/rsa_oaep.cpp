#include <CryptLib/detail/rsa_oaep.h>

#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/rsa.h>

#include <CryptLib/detail/crypto_library.h>

namespace secm {
namespace {

rsa_key parse(const std::vector<unsigned char>& der, int selection) {
  EVP_PKEY* key = nullptr;
  const auto decoder = std::unique_ptr<OSSL_DECODER_CTX, void (*)(OSSL_DECODER_CTX*)>(
      OSSL_DECODER_CTX_new_for_pkey(&key, "DER", "type-specific", "RSA", selection,
                                    library_context(), nullptr),
      OSSL_DECODER_CTX_free);
  const unsigned char* from = der.data();
  size_t rest = der.size();
  if (decoder) OSSL_DECODER_from_data(decoder.get(), &from, &rest);
  return rsa_key(key);
}

bool oaep(int begin(EVP_PKEY_CTX*),
          int work(EVP_PKEY_CTX*, unsigned char*, size_t*, const unsigned char*, size_t),
          EVP_PKEY& key, const unsigned char* in, size_t length, std::vector<unsigned char>& out) {
  const auto context = std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)>(
      EVP_PKEY_CTX_new_from_pkey(library_context(), &key, nullptr), EVP_PKEY_CTX_free);
  if (!context || begin(context.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) <= 0) {
    return false;
  }
  size_t written = static_cast<size_t>(EVP_PKEY_get_size(&key));
  out.assign(written, 0);
  if (work(context.get(), out.data(), &written, in, length) <= 0) return false;
  out.resize(written);
  return true;
}

}  // namespace

rsa_key rsa_public_key(const std::vector<unsigned char>& der) {
  return parse(der, EVP_PKEY_PUBLIC_KEY);
}

rsa_key rsa_private_key(const std::vector<unsigned char>& der) {
  return parse(der, EVP_PKEY_KEYPAIR);
}

bool rsa_encrypt(EVP_PKEY& public_key, const unsigned char* in, size_t length,
                 std::vector<unsigned char>& out) {
  return oaep(EVP_PKEY_encrypt_init, EVP_PKEY_encrypt, public_key, in, length, out);
}

bool rsa_decrypt(EVP_PKEY& private_key, const unsigned char* in, size_t length,
                 std::vector<unsigned char>& out) {
  return oaep(EVP_PKEY_decrypt_init, EVP_PKEY_decrypt, private_key, in, length, out);
}

}  // namespace secm
