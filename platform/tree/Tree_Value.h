// The payload of a value node.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <tree/Tree_Memory.h>
#include <utility/Tmr_PoolAllocator.h>

// A text and the is-change flag (0 or 1). Texts of up to 16 bytes are kept inside. Not
// locked: one thread changes a value while no other reads it.
class HALVORIA_API Tree_Value {
 public:
  Tree_Value(const RWCString& text, int is_change) : Tree_Value(text.view(), is_change) {}
  Tree_Value(const char* text, int is_change)
      : Tree_Value(std::string_view(text ? text : ""), is_change) {}
  Tree_Value(std::string_view text, int is_change)
      : m_length(0), m_is_change(is_change != 0), m_tag(0) {
    assign(text);
  }
  Tree_Value(const Tree_Value& other) : Tree_Value(other.GetText(), other.IsChange()) {}
  Tree_Value(Tree_Value&& other) noexcept { steal(other); }
  Tree_Value& operator=(Tree_Value other) noexcept {
    release();
    steal(other);
    return *this;
  }
  ~Tree_Value() { release(); }

  RWCString GetValue() const {
    return m_length < sizeof m_inside ? RWCString::OfFifteen(m_inside, m_length)
                                      : RWCString(GetText());
  }
  // Valid until the value is changed or destroyed; not NUL-terminated.
  std::string_view GetText() const {
    return {m_length <= sizeof m_inside ? m_inside : m_outside, m_length};
  }
  void SetValue(const RWCString& text) { SetText(text.view()); }
  void SetText(std::string_view text);
  int IsChange() const { return m_is_change; }
  void SetIsChange(int is_change) { m_is_change = is_change != 0; }
  // Sixteen bits for whoever holds the value; 0 at first, and in a copy.
  uint16_t Tag() const { return m_tag; }
  void SetTag(uint16_t tag) { m_tag = tag; }
  // Bytes held outside the object.
  uint64_t OutsideSize() const {
    return m_length <= sizeof m_inside ? 0 : Tree_Memory::Taken(m_length);
  }

  static void* operator new(size_t) { return m_sValuesPool.Allocate(); }
  static void* operator new(size_t, void* at) { return at; }
  static void operator delete(void* value) { m_sValuesPool.Release(value); }
  static Tmr_PoolAllocator m_sValuesPool;

 private:
  void assign(std::string_view text);
  void release() {
    if (m_length > sizeof m_inside) Tree_Memory::Release(m_outside, m_length);
  }
  void steal(Tree_Value& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof *this);
    other.m_length = 0;
  }

  uint64_t m_length : 47;
  uint64_t m_is_change : 1;
  uint64_t m_tag : 16;
  union {
    char m_inside[16];
    char* m_outside;
  };
};
