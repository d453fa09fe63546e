#include <connection/Conn_FrameSplitter.h>

#include <algorithm>
#include <cstring>
#include <new>

#include <connection/Conn_Form.h>

Conn_FrameSplitter::Conn_FrameSplitter(size_t usual_size, size_t max_frame)
    : m_usual_size(std::max(usual_size, 2 * CONN_LENGTH_SIZE)), m_max_frame(max_frame) {}

size_t Conn_FrameSplitter::claimed() const {
  if (m_end - m_begin < CONN_LENGTH_SIZE) return 0;
  size_t length = 0;
  for (size_t i = 0; i < CONN_LENGTH_SIZE; ++i) {
    length = length << 8 | static_cast<unsigned char>(m_bytes.get()[m_begin + i]);
  }
  return length;
}

Conn_FrameSplitter::Found Conn_FrameSplitter::next(std::string_view& frame) {
  if (m_end - m_begin < CONN_LENGTH_SIZE) return Found::NOTHING_WHOLE;
  const size_t length = claimed();
  if (length > m_max_frame) return Found::TOO_LONG;
  if (m_end - m_begin - CONN_LENGTH_SIZE < length) return Found::NOTHING_WHOLE;
  frame = {m_bytes.get() + m_begin + CONN_LENGTH_SIZE, length};
  m_begin += CONN_LENGTH_SIZE + length;
  return Found::FRAME;
}

char* Conn_FrameSplitter::room(size_t& size) {
  if (!m_bytes) resize(m_usual_size);
  if (!has_begun()) clear();
  // The rest of a frame goes to the front when the whole would not fit behind what was read.
  const size_t wanted = CONN_LENGTH_SIZE + std::min(claimed(), m_max_frame);
  if (m_begin > 0 && (m_end == m_size || m_begin + wanted > m_size)) {
    std::memmove(m_bytes.get(), m_bytes.get() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
  }
  if (m_end == m_size) resize(std::max(m_size + 1, std::min(2 * m_size, wanted)));
  size = m_size - m_end;
  return m_bytes.get() + m_end;
}

void Conn_FrameSplitter::resize(size_t size) {
  // Large blocks are moved by the system without being copied.
  char* bytes = static_cast<char*>(std::realloc(m_bytes.get(), size));
  if (!bytes) throw std::bad_alloc();
  (void)m_bytes.release();
  m_bytes.reset(bytes);
  m_size = size;
}

void Conn_FrameSplitter::shrink(size_t keeps) {
  if (has_begun() || m_size <= keeps) return;
  clear();
  m_bytes.reset();
  m_size = 0;
}
