// Encrypted buffers, beside the calls of the cipher library that do the same.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include <SECM/SECM_crypt.h>
#include <common/clock.h>
#include <common/need.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

namespace bench {
namespace {

using bytes = std::vector<unsigned char>;

constexpr unsigned char key[] = "0123456789abcdef0123456789abcdef";
constexpr char key_text[] = "MDEyMzQ1Njc4OWFiY2RlZjAxMjM0NTY3ODlhYmNkZWY=";

const EVP_CIPHER* fetched(const char* name) {
  static OSSL_LIB_CTX* const context = [] {
    OSSL_LIB_CTX* made = OSSL_LIB_CTX_new();
    need(OSSL_PROVIDER_load(made, "default") && OSSL_PROVIDER_load(made, "legacy"), "providers");
    return made;
  }();
  return EVP_CIPHER_fetch(context, name, nullptr);  // the process ends
}

void run_bare(const EVP_CIPHER* cipher, bool encrypts, const bytes& in, unsigned char* out) {
  static constexpr unsigned char vector[EVP_MAX_IV_LENGTH] = {};
  EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
  int written = 0, last = 0;
  need(EVP_CipherInit_ex2(context, cipher, key, vector, encrypts, nullptr) &&
           EVP_CipherUpdate(context, out, &written, in.data(), static_cast<int>(in.size())) &&
           EVP_CipherFinal_ex(context, out + written, &last),
       "bare cipher");
  EVP_CIPHER_CTX_free(context);
}

struct named_cipher {
  int algorithm;
  const char* name;
};

struct load {
  const char* what;
  size_t size;
  size_t repeats;
  bool is_kept;  // the buffer, from sample to sample
  double target;
};

void compare(const named_cipher& c, const load& l, bool encrypts, int count, report& result) {
  SECM_crypt crypt(c.algorithm, key_text);
  const EVP_CIPHER* cipher = fetched(c.name);
  const bytes plain(l.size, 'x');
  bytes sealed, our_kept, their_kept(l.size + 64);
  need(crypt.encrypt(plain.data(), static_cast<unsigned>(l.size), sealed, false), "encryption");
  run_bare(cipher, true, plain, their_kept.data());
  need(std::equal(sealed.begin(), sealed.end(), their_kept.begin()), "the bytes of the peer");

  const bytes& in = encrypts ? plain : sealed;
  const auto run = encrypts ? &SECM_crypt::encrypt : &SECM_crypt::decrypt;
  rounds all;
  const auto add = [&](auto work) {
    return all.add([&l, work]() -> std::vector<double> {
      if (!l.is_kept) touch_memory(l.size * 2);
      const double time = time_ns(CPU, [&] {
        for (size_t i = 0; i < l.repeats; ++i) work();
      });
      return {time / static_cast<double>(l.repeats * l.size / 1024)};
    });
  };
  const auto ours = add([&] {
    bytes fresh;
    const auto length = static_cast<unsigned>(in.size());
    need((crypt.*run)(in.data(), length, l.is_kept ? our_kept : fresh, false), "our cipher");
  });
  const auto theirs = add([&] {
    std::unique_ptr<unsigned char[]> fresh;
    if (!l.is_kept) fresh.reset(new unsigned char[l.size + 64]);
    run_bare(cipher, encrypts, in, l.is_kept ? their_kept.data() : fresh.get());
  });
  all.run(count);
  const std::string subject = (encrypts ? "encrypt, " : "decrypt, ") + std::string(c.name) + l.what;
  result.add({subject, "plain EVP calls", "ns/KB", l.target, {}}, all.of(ours), all.of(theirs));
}

}  // namespace

report crypto_suite(const scale& s) {
  const size_t hosts = static_cast<size_t>(s.hosts), large = hosts * 2150;
  const named_cipher ciphers[] = {{SECM_crypt::AES_128_CBC, "AES-128-CBC"},
                                  {SECM_crypt::RC4, "RC4"}};
  const load loads[] = {{", new buffer", large, 1, false, 1.3},
                        {", kept buffer", large, 1, true, 1.1},
                        {", messages of 1 KB", 1024, hosts, true, 1.3}};
  report result;
  for (const auto& cipher : ciphers) {
    for (const auto& load : loads) {
      for (const bool encrypts : {true, false}) {
        compare(cipher, load, encrypts, s.many_rounds, result);
      }
    }
  }
  return result;
}

}  // namespace bench
