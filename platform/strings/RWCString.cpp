#include <strings/RWCString.h>

#include <algorithm>

static char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

int RWCString::compareTo(const RWCString& other, caseCompare how) const {
  if (how == exact) return m_text.compare(other.m_text);
  const size_t common = std::min(length(), other.length());
  for (size_t i = 0; i < common; ++i) {
    const auto a = static_cast<unsigned char>(lower(m_text[i]));
    const auto b = static_cast<unsigned char>(lower(other.m_text[i]));
    if (a != b) return a < b ? -1 : 1;
  }
  return length() == other.length() ? 0 : length() < other.length() ? -1 : 1;
}

RWCString RWCString::subString(size_t from, size_t count) const {
  return from >= length() ? RWCString() : RWCString(view().substr(from, count));
}

void RWCString::toLower() {
  for (char& c : m_text) c = lower(c);
}
