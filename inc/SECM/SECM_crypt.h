// Encryption of byte buffers.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include <strings/Export.h>

struct evp_cipher_st;

// Encrypts and decrypts buffers with one key and one algorithm:
//
//   SECM_crypt cipher(SECM_crypt::AES_128_CBC, "site_7#" + key_as_base64);
//   std::vector<unsigned char> sealed, opened;
//   if (!cipher.encrypt(bytes, length, sealed, true)) return false;
//   if (!cipher.decrypt(sealed.data(), sealed.size(), opened, true)) return false;
//
// With a header, a buffer says how long its ciphertext is and by the name of which key it
// was made, so that it may be longer than its content and a wrong key can be named when
// decryption fails. A buffer with a header is decrypted with a header, one without without.
//
// What it does not do: nothing is authenticated. A changed buffer or a wrong key is noticed
// only where the padding of the last block shows it, and never with RC4. There is no
// initialisation vector, so equal buffers stay equal when they are encrypted, and two
// buffers under one RC4 key give each other away: a key for each is the remedy.
//
// The object holds the key until it is destroyed, and then wipes it, as it wipes what a
// failed operation has written. Any thread may call any operation; nothing throws. The log
// (module 197) has the begin and the end of each operation, and why it failed, such as that
// OpenSSL's legacy provider is missing, which Blowfish and RC4 need.
class HALVORIA_API SECM_crypt {
 public:
  enum Algorithm : int {
    DES_EDE2 = 1,         // triple DES with two keys, 16 bytes; blocks are not chained
    DES_EDE3 = 2,         // triple DES with three keys, 24 bytes; blocks are not chained
    BLOWFISH_CBC = 3,     // 16 bytes of key
    RSA_PUBLIC_KEY = 4,   // the key is a PKCS#1 public key in DER; only encrypts
    RSA_PRIVATE_KEY = 5,  // the key is a PKCS#1 private key in DER; only decrypts
    AES_256_CBC = 6,      // 32 bytes of key
    AES_128_CBC = 7,      // 16 bytes of key
    RC4 = 8,              // 16 bytes of key
  };

  // `key_spec` is the key in base64, or its name, "#" and the key in base64. Of a key that is
  // longer than the algorithm's, the first bytes are used. A text that is not base64 leaves
  // the object without a key: its operations fail. The caller wipes its own copy of the text.
  SECM_crypt(int algorithm, std::string key_spec);
  SECM_crypt(const SECM_crypt&) = delete;
  SECM_crypt& operator=(const SECM_crypt&) = delete;
  ~SECM_crypt();

  // Replaces the content of `out`, whose memory is used again where it is large enough; after
  // a failure it is empty. `in` must not be part of `out`.
  //
  // With a header `out` is up to one block and a byte longer than header and ciphertext. RSA
  // has no header, whatever `with_header` says, and encrypts at most 42 bytes less than the
  // length of its modulus: the rest is padding (OAEP).
  bool encrypt(const unsigned char* in, unsigned int length, std::vector<unsigned char>& out,
               bool with_header);
  bool decrypt(const unsigned char* in, unsigned int length, std::vector<unsigned char>& out,
               bool with_header);

 private:
  bool has_key() const;
  bool is_rsa() const;
  bool select_cipher();
  bool is_key_long_enough() const;

  bool symmetricEncryption(const unsigned char* in, unsigned int length,
                           std::vector<unsigned char>& out, bool with_header);
  bool symmetricDecryption(const unsigned char* in, unsigned int length,
                           std::vector<unsigned char>& out, bool with_header);
  bool assymmetricEncryption(const unsigned char* in, unsigned int length,
                             std::vector<unsigned char>& out);
  bool assymmetricDecryption(const unsigned char* in, unsigned int length,
                             std::vector<unsigned char>& out);

  std::vector<unsigned char> m_key;
  std::string m_key_text;
  int m_algorithm;
  std::string m_key_name;
  // That of the last operation; the same in every one, so that they may run at once.
  std::atomic<const evp_cipher_st*> m_cipher{nullptr};
};
