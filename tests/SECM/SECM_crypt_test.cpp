#include <gtest/gtest.h>

#include <limits.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <stdlib.h>

#include <memory>
#include <thread>

#include <SECM/SECM_crypt.h>
#include <logging/Log_Capture.h>
#include <utility/Tmr_Base64Utils.h>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes from_hex(std::string_view hex) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(std::string(hex.substr(i, 2)), 0, 16)));
  }
  return bytes;
}

std::string base64(const Bytes& bytes) {
  const auto* chars = reinterpret_cast<const char*>(bytes.data());
  return Tmr_Base64Utils::Encode(chars, static_cast<int>(bytes.size()), false).str();
}

Bytes counting(size_t length) {
  Bytes bytes(length);
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + i / 251);
  return bytes;
}

// Has to work. `out` begins with something, which must not be seen.
Bytes encrypted(SECM_crypt& cipher, const Bytes& in, bool with_header) {
  Bytes out(99, 0xEE);
  EXPECT_TRUE(cipher.encrypt(in.data(), static_cast<unsigned>(in.size()), out, with_header));
  return out;
}
Bytes decrypted(SECM_crypt& cipher, const Bytes& in, bool with_header) {
  Bytes out(99, 0xEE);
  EXPECT_TRUE(cipher.decrypt(in.data(), static_cast<unsigned>(in.size()), out, with_header));
  return out;
}

const char aes_128_key[] = "2b7e151628aed2a6abf7158809cf4f3c";

// An initialisation vector other than zero comes in as what the first block encrypts to: that
// block of the plaintext is made from it, and the published vector follows.
TEST(SECM_crypt, GivesPublishedAnswers) {
  const struct {
    const char* source;
    int algorithm;
    const char *key, *plain, *cipher;
  } rows[] = {
      {"SP 800-38A F.2.1", SECM_crypt::AES_128_CBC, aes_128_key,
       "2880adbdde2a0ea9dc72a7bf6201ec72"
       "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
       "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
       "000102030405060708090a0b0c0d0e0f"
       "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
       "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
      {"SP 800-38A F.2.5", SECM_crypt::AES_256_CBC,
       "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
       "393e4e6cdf9b1fc836120fa2a3d8f140"
       "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
       "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
       "000102030405060708090a0b0c0d0e0f"
       "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
       "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
      {"NIST example values, TDES_ECB, two keys", SECM_crypt::DES_EDE2,
       "0123456789abcdef23456789abcdef01",
       "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51",
       "06ede3d82884090aff322c19f0518486730576972a666e58b6c88cf107340d3d"},
      {"SP 800-67 B.1", SECM_crypt::DES_EDE3, "0123456789abcdef23456789abcdef01456789abcdef0123",
       "5468652071756663"  // "The qufc", as printed there
       "6b2062726f776e20666f78206a756d70",
       "a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900"},
      {"SSLeay, bftest.c, CBC", SECM_crypt::BLOWFISH_CBC, "0123456789abcdeff0e1d2c3b4a59687",
       "518e6a7ddf49dba6"
       "37363534333231204e6f77206973207468652074696d6520666f722000000000",
       "fedcba9876543210"
       "6b77b4d63006dee605b156e27403979358deb9e7154616d959f1652bd5ff92cc"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.source);
    const Bytes plain = from_hex(row.plain), expected = from_hex(row.cipher);
    SECM_crypt cipher(row.algorithm, base64(from_hex(row.key)) + "\n");
    Bytes out = encrypted(cipher, plain, false);
    EXPECT_EQ(decrypted(cipher, out, false), plain);
    EXPECT_GT(out.size(), expected.size());  // a block of padding follows
    out.resize(expected.size());
    EXPECT_EQ(out, expected);
  }
}

TEST(SECM_crypt, Rc4IsTheStreamOfRfc6229) {
  // Only the first 16 bytes of a key count.
  SECM_crypt cipher(SECM_crypt::RC4, base64(from_hex("0102030405060708090a0b0c0d0e0f10aaaa")));
  const Bytes stream = encrypted(cipher, Bytes(4112), false);
  ASSERT_EQ(stream.size(), 4112u);
  const struct {
    int offset;
    const char* bytes;
  } rows[] = {{0, "9ac7cc9a609d1ef7b2932899cde41b97"},
              {16, "5248c4959014126a6e8a84f11d1a9e1c"},
              {1008, "e7a72574f8782ae26aabcf9ebcd66065"},
              {4096, "a36a4c301ae8ac13610ccbc12256cacc"}};
  for (const auto& row : rows) {
    const auto at = stream.begin() + row.offset;
    EXPECT_EQ(Bytes(at, at + 16), from_hex(row.bytes)) << row.offset;
  }
}

TEST(SECM_crypt, WritesTheHeaderByteForByte) {
  SECM_crypt cipher(SECM_crypt::AES_128_CBC, "key of a long name#" + base64(from_hex(aes_128_key)));
  const Bytes hello{'h', 'e', 'l', 'l', 'o'};
  EXPECT_EQ(encrypted(cipher, hello, true), from_hex("02"
                                                     "31360000000000000000"  // 16
                                                     "00"
                                                     "6b6579206f662061206c6f6e67206e"  // cut
                                                     "00"
                                                     "54116e8bb5470e432b4a6debc243a7ec"
                                                     "000000000000"));
}

TEST(SECM_crypt, EveryLengthComesBack) {
  const struct {
    int algorithm;
    size_t block;
  } rows[] = {{SECM_crypt::DES_EDE2, 8},     {SECM_crypt::DES_EDE3, 8},
              {SECM_crypt::BLOWFISH_CBC, 8}, {SECM_crypt::AES_256_CBC, 16},
              {SECM_crypt::AES_128_CBC, 16}, {SECM_crypt::RC4, 1}};
  for (const auto& row : rows) {
    SECM_crypt cipher(row.algorithm, "n#" + base64(counting(32)));
    for (const size_t length : {1, 7, 8, 15, 16, 17, 65535, 65536, 65537, 200000}) {
      SCOPED_TRACE(testing::Message() << row.algorithm << " " << length);
      const Bytes plain = counting(length), bare = encrypted(cipher, plain, false);
      EXPECT_EQ(bare.size(), row.block == 1 ? length : (length / row.block + 1) * row.block);
      EXPECT_EQ(decrypted(cipher, bare, false), plain);
      Bytes with_header = encrypted(cipher, plain, true);
      EXPECT_EQ(with_header.size(), (28 + length + row.block + 1) / 2 * 2);
      EXPECT_EQ(decrypted(cipher, with_header, true), plain);
      with_header.resize(28 + bare.size());
      EXPECT_EQ(decrypted(cipher, with_header, true), plain);
      EXPECT_TRUE(std::equal(bare.begin(), bare.end(), with_header.begin() + 28));
    }
  }
}

// In a block of its own, so that reading beyond it is seen.
bool fails(SECM_crypt& cipher, const Bytes& in, bool is_encryption = false) {
  const auto block = std::make_unique<unsigned char[]>(in.size());
  std::copy(in.begin(), in.end(), block.get());
  const auto length = static_cast<unsigned>(in.size());
  Bytes out(99, 0xEE);
  const bool is_done = is_encryption ? cipher.encrypt(block.get(), length, out, true)
                                     : cipher.decrypt(block.get(), length, out, true);
  return !is_done && out.empty();
}

TEST(SECM_crypt, NoTamperedHeaderIsBelieved) {
  const std::string key = base64(from_hex(aes_128_key));
  SECM_crypt cipher(SECM_crypt::AES_128_CBC, "site#" + key);
  const Bytes good = encrypted(cipher, counting(20), true);  // 28 + 32 + 4
  ASSERT_EQ(good.size(), 64u);
  const auto invalid = [](long bufsize, int insize = 64) {
    return "invalid buffer, insize is " + std::to_string(insize) + " and bufsize is " +
           std::to_string(bufsize) + ".\n";
  };
  using std::string_literals::operator""s;
  const struct {
    size_t size, at;
    std::string bytes, message;
  } rows[] = {
      {64, 0, "\1", "incompatible buffer version <1>.\n"},
      {64, 0, "\xFF", "incompatible buffer version <ff>.\n"},
      {64, 1, "0\0"s, invalid(0)},
      {64, 1, "\0\0"s, invalid(0)},
      {64, 1, "36", "wrong final block length.\n"},  // all that there is
      {64, 1, "37", invalid(37)},
      {64, 1, "64", invalid(64)},
      {64, 1, "65", invalid(65)},
      {64, 1, "4294967328", invalid(4294967328)},
      {64, 1, "99999999999", invalid(0)},
      {64, 1, "-1", invalid(0)},
      {64, 1, "+32", invalid(0)},
      {64, 1, " 32", invalid(0)},
      {64, 1, "3x", invalid(0)},
      {64, 1, "32\0005"s, invalid(0)},
      {64, 11, "\1", invalid(0)},
      {64, 1, "31", "wrong final block length.\n"},
      {64, 1, "16", "bad decrypt.\n"},
      {64, 59, "\1", "bad decrypt.\n"},
      {59, 0, "\2", invalid(32, 59)},
      {28, 0, "\2", invalid(32, 28)},
      {27, 0, "\2", invalid(0, 27)},
      {1, 0, "\2", invalid(0, 1)},
      {0, 0, "", invalid(0, 0)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.bytes) + " at " + std::to_string(row.at));
    Bytes buffer = good;
    std::copy(row.bytes.begin(), row.bytes.end(), buffer.begin() + static_cast<long>(row.at));
    buffer.resize(row.size);
    const Log_Capture log;
    EXPECT_TRUE(fails(cipher, buffer));
    EXPECT_TRUE(log.has(row.message)) << log.text();
    EXPECT_FALSE(log.has("incompatible key"));
    EXPECT_EQ(log.last(), "SECM_crypt::decrypt  ~OUT    ( FAIL !!!! ) \n");
  }

  SECM_crypt other(SECM_crypt::AES_128_CBC, "another site's name#" + base64(counting(16)));
  const Log_Capture log;
  EXPECT_TRUE(fails(other, good));
  EXPECT_TRUE(
      log.has("symmetricDecryption Error! - incompatible key, buffer encrypted with (site) "
              "while try to decrypt with (another site's name).\n"));
  SECM_crypt cut(SECM_crypt::AES_128_CBC, "another site's other name#" + key);
  EXPECT_EQ(decrypted(cut, good, true), counting(20));  // the name does not matter
  Bytes broken = encrypted(cut, counting(20), true);
  broken[59] ^= 1;
  const Log_Capture later;
  EXPECT_TRUE(fails(other, broken));
  EXPECT_FALSE(later.has("incompatible key"));  // as far as the header tells
}

TEST(SECM_crypt, SaysWhatIsWrongWithKeyOrInput) {
  const std::string ten = base64(counting(10)), good = base64(counting(32));
  const char no_key[] = "Fail to encrypt: Invalid key.\n|Fail to Decrypt: Invalid key.\n";
  const struct {
    int algorithm;
    std::string key_spec;
    std::string message;
  } rows[] = {
      {9, good, no_key},
      {0, good, no_key},
      {INT_MIN, good, no_key},
      {7, "", no_key},
      {7, "name#", no_key},
      {7, "#", no_key},
      {7, good + "!", no_key},
      {7, "a#b#" + good, no_key},
      {6, ten, "Key is too small. Algorithm length: 32, key length: 10\n"},
      {2, "n#" + ten, "Key is too small. Algorithm length: 24, key length: 10\n"},
      {8, ten, "Key is too small. Algorithm length: 16, key length: 10\n"},
  };
  SECM_crypt cipher(7, good);
  const Bytes buffer = encrypted(cipher, counting(5), true);
  for (const auto& row : rows) {
    SECM_crypt bad(row.algorithm, row.key_spec);
    const size_t bar = row.message.find('|');
    const Log_Capture log;
    EXPECT_TRUE(fails(bad, buffer, true));
    EXPECT_TRUE(log.has(row.message.substr(0, bar))) << log.text();
    EXPECT_TRUE(fails(bad, buffer));
    EXPECT_TRUE(log.has(row.message.substr(bar + 1))) << log.text();
  }
  Bytes out;
  const unsigned char byte = 0;
  Log_Capture log;
  for (const auto* in : {static_cast<const unsigned char*>(nullptr), &byte}) {
    log.clear();
    EXPECT_FALSE(cipher.encrypt(in, in ? 0 : 5, out, true));
    EXPECT_TRUE(log.has("symmetricEncryption Error! - called with NULL or empty buffer.\n"));
  }
  EXPECT_FALSE(cipher.decrypt(nullptr, 5, out, false));
  EXPECT_TRUE(log.has("symmetricDecryption Error! - called with NULL buffer.\n"));
  EXPECT_FALSE(cipher.encrypt(&byte, UINT_MAX, out, false));  // not read
  EXPECT_TRUE(log.has("4294967295 bytes are too many"));
}

TEST(SECM_crypt, TracesEveryOperation) {
  SECM_crypt cipher(SECM_crypt::AES_128_CBC, base64(counting(16)));
  const Log_Capture log;
  EXPECT_EQ(decrypted(cipher, encrypted(cipher, counting(5), true), true), counting(5));
  EXPECT_EQ(log.text(),
            "SECM_crypt::encrypt  ~IN\n"
            "symmetricEncryption - Final step....\n"
            "SECM_crypt::encrypt  ~OUT    (SUCCESS)\n"
            "SECM_crypt::decrypt  ~IN\n"
            "symmetricDecryption - Input Buffer size (50),  internal buffer size (16).\n"
            "symmetricDecryption - Final step....\n"
            "SECM_crypt::decrypt  ~OUT    (SUCCESS)\n");
  for (const auto& line : log.lines()) EXPECT_EQ(line.level * 1000 + line.module, 7197);
}

struct RsaKeys {
  RsaKeys() {
    EVP_PKEY* pair = EVP_RSA_gen(1024);
    public_der.resize(static_cast<size_t>(i2d_PublicKey(pair, nullptr)));
    private_der.resize(static_cast<size_t>(i2d_PrivateKey(pair, nullptr)));
    unsigned char *to_public = public_der.data(), *to_private = private_der.data();
    i2d_PublicKey(pair, &to_public);
    i2d_PrivateKey(pair, &to_private);
    EVP_PKEY_free(pair);
  }
  Bytes public_der, private_der;
};

TEST(SECM_crypt, RsaEncryptsWithThePublicAndDecryptsWithThePrivateKey) {
  const RsaKeys keys, others;
  SECM_crypt public_key(SECM_crypt::RSA_PUBLIC_KEY, "n#" + base64(keys.public_der));
  SECM_crypt private_key(SECM_crypt::RSA_PRIVATE_KEY, base64(keys.private_der));
  const size_t most = 128 - 42;  // with the padding's SHA-1
  for (const size_t length : {size_t{1}, size_t{16}, most}) {
    const Bytes sealed = encrypted(public_key, counting(length), true);  // there is no header
    EXPECT_EQ(sealed.size(), 128u);
    EXPECT_EQ(decrypted(private_key, sealed, false), counting(length));
  }
  EXPECT_NE(encrypted(public_key, counting(5), false), encrypted(public_key, counting(5), false));

  Bytes sealed = encrypted(public_key, counting(5), false), changed = sealed, cut = sealed;
  changed[70] ^= 1;
  cut.pop_back();
  const Bytes shorter(keys.private_der.begin(), keys.private_der.end() - 9);
  const struct {
    const char* what;
    int algorithm;
    Bytes key, in;
    bool is_encryption;
  } rows[] = {
      {"OAEP padding needs a public key", 5, keys.private_der, counting(5), true},
      {"OAEP padding needs a private key", 4, keys.public_der, sealed, false},
      {"key is no RSA public key", 4, keys.private_der, counting(5), true},
      {"key is no RSA private key", 5, keys.public_der, sealed, false},
      {"key is no RSA private key", 5, shorter, sealed, false},
      {"key is no RSA public key", 4, counting(100), counting(5), true},
      {"too large", 4, keys.public_der, counting(most + 1), true},
      {"assymmetricDecryption Error! - ", 5, keys.private_der, changed, false},
      {"assymmetricDecryption Error! - ", 5, keys.private_der, cut, false},
      {"assymmetricDecryption Error! - ", 5, others.private_der, sealed, false},
  };
  for (const auto& row : rows) {
    SECM_crypt cipher(row.algorithm, base64(row.key));
    const Log_Capture log;
    EXPECT_TRUE(fails(cipher, row.in, row.is_encryption)) << row.what;
    EXPECT_TRUE(log.has(row.what)) << log.text();
  }
  EXPECT_EQ(ERR_peek_error(), 0u);  // the application's queue
}

TEST(SECM_crypt, SaysWhereTheLegacyProviderIsMissing) {
  ASSERT_EQ(setenv("OPENSSL_MODULES", "/no/such/folder", 1), 0);
  for (const int algorithm : {SECM_crypt::BLOWFISH_CBC, SECM_crypt::RC4}) {
    SECM_crypt cipher(algorithm, base64(counting(16)));
    const Log_Capture log;
    EXPECT_TRUE(fails(cipher, counting(5), true));
    EXPECT_TRUE(log.has(algorithm == 8 ? "algorithm 8 (RC4)" : "algorithm 3 (BF-CBC)"));
    EXPECT_TRUE(log.has("legacy provider could not be loaded from /no/such/folder"));
  }
  SECM_crypt aes(SECM_crypt::AES_128_CBC, base64(counting(16)));
  EXPECT_EQ(decrypted(aes, encrypted(aes, counting(5), true), true), counting(5));
}

TEST(SECM_crypt, OneObjectServesSeveralThreads) {
  SECM_crypt cipher(SECM_crypt::RC4, base64(counting(16)));
  std::vector<std::thread> threads;
  for (size_t t = 1; t <= 4; ++t) {
    threads.emplace_back([&cipher, t] {
      for (size_t i = 0; i < 50; ++i) {
        const Bytes plain = counting(t * 1000 + i);
        EXPECT_EQ(decrypted(cipher, encrypted(cipher, plain, true), true), plain);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
