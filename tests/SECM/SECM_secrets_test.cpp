// A program of its own, since it replaces the heap's operators: every block that goes back is
// searched for a secret that should have been wiped.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cstdlib>
#include <new>
#include <string_view>

#include <SECM/SECM_crypt.h>

namespace {

std::string_view watched_secret;
bool is_secret_freed = false;

void give_back(void* block) {
  if (block && !watched_secret.empty()) {
    const std::string_view bytes(static_cast<char*>(block), malloc_usable_size(block));
    if (bytes.find(watched_secret) != bytes.npos) is_secret_freed = true;
  }
  std::free(block);
}

}  // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void* operator new(size_t size) {
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { give_back(block); }
void operator delete(void* block, size_t) noexcept { give_back(block); }

namespace {

TEST(SECM_crypt, WipesSecretsBeforeTheirMemoryIsFreed) {
  const unsigned char plain[] = "a text of thirty-two bytes, long";
  const char *key_text = "TWFueSBoYW5kcyBtYWtlIGxpZ2h0IHdvcms=",
             *in_key_text = "BoYW5kcyBtYWtlIGxpZ2h0";
  const struct {
    const char* what;
    const char* secret;
    std::string_view key_spec;
  } rows[] = {
      {"text of the key", in_key_text, key_text},
      {"text of the key behind its name", in_key_text, "name#TWFueSBoYW5kcyBtYWtlIGxpZ2h0IHdvcms="},
      {"text of the key, two lines", in_key_text, "TWFu\neSBoYW5kcyBtYWtlIGxpZ2h0IHdvcms=\n"},
      {"text that is no key", in_key_text, "TWFueSBoYW5kcyBtYWtlIGxpZ2h0IHdvcms=!"},
      {"bytes of the key", "hands make light", key_text},
      {"what was decrypted before the failure", "a text of thirty", key_text},
  };
  SECM_crypt writer(SECM_crypt::AES_128_CBC, key_text);
  std::vector<unsigned char> sealed;
  ASSERT_TRUE(writer.encrypt(plain, 32, sealed, false));
  const auto without_padding = static_cast<unsigned>(sealed.size()) - 16;
  for (const auto& row : rows) {
    watched_secret = row.secret;
    {
      SECM_crypt cipher(SECM_crypt::AES_128_CBC, std::string(row.key_spec));
      std::vector<unsigned char> out;
      EXPECT_FALSE(cipher.decrypt(sealed.data(), without_padding, out, false));
    }
    watched_secret = {};
    EXPECT_FALSE(is_secret_freed) << row.what;
    is_secret_freed = false;
  }
  // The watch works.
  watched_secret = in_key_text;
  { const std::string copy(key_text); }
  watched_secret = {};
  EXPECT_TRUE(is_secret_freed);
}

}  // namespace
