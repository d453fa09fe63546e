#include <tree/Tree_Value.h>

#include <utility>

constinit Tmr_PoolAllocator Tree_Value::m_sValuesPool{sizeof(Tree_Value), 1};

void Tree_Value::assign(std::string_view text) {
  if (text.size() <= sizeof m_inside) {
    text.copy(m_inside, text.size());
  } else {
    auto* bytes = static_cast<char*>(Tree_Memory::Allocate(text.size()));
    text.copy(bytes, text.size());
    m_outside = bytes;
  }
  m_length = text.size();
}

// The new text is in place before the old one goes: `text` may be part of it.
void Tree_Value::SetText(std::string_view text) {
  Tree_Value fresh(text, IsChange());
  fresh.SetTag(Tag());
  *this = std::move(fresh);
}
