// Encrypted buffers: any bytes are decrypted or refused without a fault, what is decrypted is
// what the header says, and any bytes come back from encryption. The first byte of the input
// chooses the algorithm, the others are the buffer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include <SECM/SECM_crypt.h>
#include <logging/Tmr_GLog.h>

#include "reach.h"

namespace {

Reach foreign_opened("a buffer with a foreign header is opened");
Reach foreign_refused("a buffer is refused");
Reach own_opened("what was encrypted is decrypted");

using bytes = std::vector<unsigned char>;

constexpr size_t header_size = 28;
constexpr int algorithms[] = {
    SECM_crypt::RC4,          SECM_crypt::AES_128_CBC, SECM_crypt::AES_256_CBC,
    SECM_crypt::BLOWFISH_CBC, SECM_crypt::DES_EDE2,    SECM_crypt::DES_EDE3,
};

bool decrypt(SECM_crypt& cipher, std::span<const uint8_t> in, bytes& out, bool with_header) {
  static const uint8_t nothing = 0;
  const uint8_t* from = in.empty() ? &nothing : in.data();
  const bool is_done = cipher.decrypt(from, static_cast<unsigned>(in.size()), out, with_header);
  if (!is_done && !out.empty()) abort();
  return is_done;
}

// Decrypts a buffer with a header of any content; what comes out of it comes out of the
// ciphertext alone, too.
void check_foreign(SECM_crypt& cipher, std::span<const uint8_t> buffer) {
  bytes opened, bare;
  if (!decrypt(cipher, buffer, opened, true)) return foreign_refused();
  foreign_opened();
  if (buffer.size() < header_size || buffer[0] != 2) abort();
  const std::string digits(buffer.begin() + 1, buffer.begin() + 12);
  const unsigned long length = std::stoul(digits);
  if (length > buffer.size() - header_size) abort();
  if (!decrypt(cipher, buffer.subspan(header_size, length), bare, false)) abort();
  if (opened != bare) abort();
}

void check_own(SECM_crypt& cipher, std::span<const uint8_t> plain) {
  bytes sealed, opened;
  const auto length = static_cast<unsigned>(plain.size());
  for (const bool with_header : {false, true}) {
    if (!cipher.encrypt(plain.data(), length, sealed, with_header)) abort();
    if (!decrypt(cipher, sealed, opened, with_header)) abort();
    if (!std::ranges::equal(opened, plain)) abort();
    own_opened();
  }
  // Its ciphertext under a header of the input's making.
  std::copy_n(plain.begin(), std::min(plain.size(), header_size), sealed.begin());
  check_foreign(cipher, sealed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  if (size == 0) return 0;
  const int algorithm = algorithms[data[0] % std::size(algorithms)];
  const std::span<const uint8_t> buffer(data + 1, size - 1);
  SECM_crypt cipher(algorithm, "fuzz#MDEyMzQ1Njc4OWFiY2RlZjAxMjM0NTY3ODlhYmNkZWY=");
  check_foreign(cipher, buffer);
  SECM_crypt other(algorithm, "a key of another name#ZmVkY2JhOTg3NjU0MzIxMGZlZGNiYTk4NzY1NDMyMTA=");
  check_foreign(other, buffer);
  if (!buffer.empty()) check_own(cipher, buffer);
  return 0;
}
