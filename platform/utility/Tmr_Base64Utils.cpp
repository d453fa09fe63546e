#include <utility/Tmr_Base64Utils.h>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>

namespace {

constexpr int kLineBytes = 48;          // give a line of 64 characters
constexpr int kPieceBytes = 48 * 1024;  // the cipher library counts in int
constexpr size_t kPieceChars = 64 * 1024;
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Texts may be keys: their copies do not stay in memory.
struct wipe {
  void operator()(std::string* text) const {
    text->resize(text->capacity());  // what was erased, too
    OPENSSL_cleanse(text->data(), text->size());
  }
};

// The number of '=' at the end of `text`, or -1 when it is not base64: the decoder itself
// takes a '=' anywhere for a zero.
int padding_of(const std::string& text) {
  const size_t end = text.find_first_not_of(kAlphabet);
  const size_t padding = end == text.npos ? 0 : text.size() - end;
  const bool is_padded = text.find_first_not_of('=', text.size() - padding) == text.npos;
  return text.size() % 4 == 0 && padding <= 2 && is_padded ? static_cast<int>(padding) : -1;
}

}  // namespace

RWCString Tmr_Base64Utils::Encode(const char* buffer, int length, bool line_breaks) {
  std::string text;
  unsigned char piece[kPieceBytes / 3 * 4 + 1];
  const int step = line_breaks ? kLineBytes : kPieceBytes;
  for (int from = 0, count; from < length; from += count) {
    count = std::min(step, length - from);
    const auto* bytes = reinterpret_cast<const unsigned char*>(buffer) + from;
    const int chars = EVP_EncodeBlock(piece, bytes, count);
    text.append(reinterpret_cast<const char*>(piece), static_cast<size_t>(chars));
    if (line_breaks) text += '\n';
  }
  return text;
}

char* Tmr_Base64Utils::Decode(const RWCString& text, int* length, bool skip_line_breaks) {
  *length = 0;
  std::string chars = text.str();
  const std::unique_ptr<std::string, wipe> wiped(&chars);
  if (skip_line_breaks) std::erase_if(chars, [](char c) { return c == '\r' || c == '\n'; });
  const int padding = padding_of(chars);
  if (padding < 0 || chars.size() / 4 > INT_MAX / 3 - 1) return nullptr;
  auto bytes = std::make_unique<char[]>(chars.size() / 4 * 3 + 1);
  for (size_t from = 0; from < chars.size(); from += kPieceChars) {
    const int count = static_cast<int>(std::min(kPieceChars, chars.size() - from));
    const auto* piece = reinterpret_cast<const unsigned char*>(chars.data()) + from;
    const int got =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.get()) + *length, piece, count);
    if (got < 0) {
      *length = 0;
      return nullptr;
    }
    *length += got;
  }
  *length -= padding;
  bytes[static_cast<size_t>(*length)] = '\0';
  return bytes.release();
}
