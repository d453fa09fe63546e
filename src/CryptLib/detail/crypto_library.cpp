#include <CryptLib/detail/crypto_library.h>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/provider.h>

#include <iterator>

#include <SECM/SECM_crypt.h>
#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <thread/ForkHandler.h>

namespace secm {
namespace {

constexpr Log_Logger logger("src/CryptLib/SECM_crypt", 197);

constexpr const char* cipher_names[] = {
    nullptr, "DES-EDE", "DES-EDE3", "BF-CBC", nullptr, nullptr, "AES-256-CBC", "AES-128-CBC", "RC4",
};
static_assert(std::size(cipher_names) == SECM_crypt::RC4 + 1);

struct crypto_library {
  crypto_library();

  OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
  std::string legacy_fault;  // why there is no legacy provider; empty where there is one
  EVP_CIPHER* ciphers[std::size(cipher_names)] = {};
};

// Where OpenSSL looks for providers that are not built in.
std::string modules_folder() {
  RWCString folder;
  if (Sys_Environment::Get("OPENSSL_MODULES", folder)) return folder.str();
  const char* built_in = OPENSSL_info(OPENSSL_INFO_MODULES_DIR);
  return built_in ? built_in : "its folder of modules";
}

crypto_library::crypto_library() {
  if (!context) return;
  OSSL_PROVIDER_load(context, "default");
  if (!OSSL_PROVIDER_load(context, "legacy")) {
    legacy_fault = "OpenSSL's legacy provider could not be loaded from " + modules_folder() +
                   " (OPENSSL_MODULES names another folder)";
  }
  for (size_t i = 0; i < std::size(ciphers); ++i) {
    if (cipher_names[i]) ciphers[i] = EVP_CIPHER_fetch(context, cipher_names[i], nullptr);
  }
}

ForkOnce is_loaded(ForkHandler::VALUES);
constinit const crypto_library* the_library = nullptr;  // since then

const crypto_library& library() {
  is_loaded.call([] { the_library = new crypto_library; });
  return *the_library;
}

}  // namespace

OSSL_LIB_CTX* library_context() { return library().context; }

const EVP_CIPHER* cipher_of(int algorithm) {
  const char* name = cipher_names[algorithm];
  const EVP_CIPHER* cipher = library().ciphers[algorithm];
  if (name && !cipher) {
    const std::string& fault = library().legacy_fault;
    logger.error("SECM_crypt: algorithm %d (%s) is not available: %s\n", algorithm, name,
                 fault.empty() ? "OpenSSL does not have this cipher" : fault);
  }
  return cipher;
}

std::string last_reason() {
  const char* data = nullptr;
  int flags = 0;
  const unsigned long error = ERR_peek_last_error_all(nullptr, nullptr, nullptr, &data, &flags);
  const char* reason = ERR_reason_error_string(error);
  std::string text = reason ? reason : "unknown reason";
  if (data && *data && (flags & ERR_TXT_STRING)) text.append(" (").append(data).append(")");
  return text;
}

error_scope::error_scope() { ERR_set_mark(); }
error_scope::~error_scope() { ERR_pop_to_mark(); }

}  // namespace secm
