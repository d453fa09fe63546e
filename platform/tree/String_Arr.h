// An owned array of narrow strings.
#pragma once

#include <cstddef>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>

// NUL-terminated strings in order. One thread at a time.
class HALVORIA_API Generic_String_Arr {
 public:
  virtual ~Generic_String_Arr() = default;
  // Empties the array without freeing the strings: whoever fetched them owns them now
  // and frees each with delete[].
  virtual void ClearWithoutDeleting() = 0;
  // The string at an index, owned by the array; NULL out of range.
  virtual char* GetStr(int index) const = 0;
  // Stores a copy of `length` bytes at an index, growing the array with empty strings
  // where needed; a negative index or a null text is ignored.
  virtual void SetStr(int index, const char* text, int length) = 0;
  virtual void AddStr(const char* text, int length) = 0;
  virtual int GetArrLen() const = 0;

 protected:
  virtual void clear() = 0;
};

class HALVORIA_API String_Arr : public Generic_String_Arr {
 public:
  String_Arr() = default;
  explicit String_Arr(int capacity);
  String_Arr(const String_Arr&) = delete;
  String_Arr& operator=(const String_Arr&) = delete;
  ~String_Arr() override;

  void ClearWithoutDeleting() override { m_strings.clear(); }
  char* GetStr(int index) const override;
  void SetStr(int index, const char* text, int length) override;
  void AddStr(const char* text, int length) override;
  void AddStr(RWCString::Text text) {
    AddStr(text.view.data(), static_cast<int>(text.view.size()));
  }
  int GetArrLen() const override { return static_cast<int>(m_strings.size()); }

 protected:
  void clear() override;

 private:
  std::vector<char*> m_strings;
};
