#include <tree/Tree_PathAndValueArray.h>

#include <cstring>
#include <string_view>

static void put(char* to, size_t room, std::string_view text) {
  if (text.size() >= room) {
    size_t cut = room - 1;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    text = text.substr(0, cut);
  }
  if (!text.empty()) std::memcpy(to, text.data(), text.size());
  to[text.size()] = '\0';
}

static std::string_view view_of(const char* text) { return text ? text : std::string_view(); }

Tree_ValueAndPath::Tree_ValueAndPath(const char* path, const char* value) {
  SetPath(path);
  SetValue(value);
}

Tree_ValueAndPath::Tree_ValueAndPath(const RWCString& path, const RWCString& value) {
  put(m_path, kPathRoom, path);
  put(m_value, kValueRoom, value);
}

void Tree_ValueAndPath::SetPath(const char* path) { put(m_path, kPathRoom, view_of(path)); }
void Tree_ValueAndPath::SetValue(const char* value) { put(m_value, kValueRoom, view_of(value)); }

Tree_PathAndValueArray::Tree_PathAndValueArray(int count)
    : m_count(count > 0 ? count : 0),
      m_records(new Tree_ValueAndPath[static_cast<size_t>(m_count)]) {}

Tree_ValueAndPath* Tree_PathAndValueArray::GetPV(int index) {
  return index >= 0 && index < m_count ? &m_records[static_cast<size_t>(index)] : nullptr;
}

void Tree_PathAndValueArray::SetPV(int index, const char* path, const char* value) {
  Tree_ValueAndPath* record = GetPV(index);
  if (!record) return;
  record->SetPath(path);
  record->SetValue(value);
}

void Tree_PathAndValueArray::SetPV(int index, const RWCString& path, const RWCString& value) {
  Tree_ValueAndPath* record = GetPV(index);
  if (!record) return;
  put(record->m_path, Tree_ValueAndPath::kPathRoom, path);
  put(record->m_value, Tree_ValueAndPath::kValueRoom, value);
}
