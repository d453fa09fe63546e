#include <tree/String_Arr.h>

#include <cstring>
#include <memory>

static std::unique_ptr<char[]> copy_of(const char* text, int length) {
  const size_t size = text && length > 0 ? static_cast<size_t>(length) : 0;
  auto copy = std::make_unique_for_overwrite<char[]>(size + 1);
  if (size) std::memcpy(copy.get(), text, size);
  copy[size] = '\0';
  return copy;
}

String_Arr::String_Arr(int capacity) {
  if (capacity > 0) m_strings.reserve(static_cast<size_t>(capacity));
}

String_Arr::~String_Arr() { String_Arr::clear(); }

char* String_Arr::GetStr(int index) const {
  return index >= 0 && index < GetArrLen() ? m_strings[static_cast<size_t>(index)] : nullptr;
}

void String_Arr::SetStr(int index, const char* text, int length) {
  if (index < 0 || !text) return;
  auto fresh = copy_of(text, length);
  while (GetArrLen() <= index) AddStr("", 0);
  char*& place = m_strings[static_cast<size_t>(index)];
  delete[] place;
  place = fresh.release();
}

void String_Arr::AddStr(const char* text, int length) {
  auto copy = copy_of(text, length);
  m_strings.push_back(copy.get());
  copy.release();
}

void String_Arr::clear() {
  for (char* text : m_strings) delete[] text;
  m_strings.clear();
}
