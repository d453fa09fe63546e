#include <connection/Conn_Form.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <protozero/pbf_reader.hpp>
#include <protozero/pbf_writer.hpp>

namespace {

constexpr size_t kLargeField = size_t{64} << 10;
constexpr size_t kMostAround = 15;  // bytes of a tag and a length, or of a tag and a number

protozero::data_view view(std::string_view text) { return {text.data(), text.size()}; }

// The next field when `take` takes it from a reader that stands behind its tag. The parser
// reports bytes that are not well formed as exceptions, which end here.
template <class Take>
bool read_next(std::string_view& rest, uint32_t field, protozero::pbf_wire_type type, Take take) {
  try {
    protozero::pbf_reader reader(rest.data(), rest.size());
    if (!reader.next() || reader.tag() != field || reader.wire_type() != type) return false;
    take(reader);
    const protozero::data_view left = reader.data();
    rest = {left.data(), left.size()};
    return true;
  } catch (const protozero::exception&) {
    return false;
  }
}

}  // namespace

// --- writing ---------------------------------------------------------------------------------

void Conn_FormWriter::begin(std::string_view name, std::string_view prefix) {
  m_is_whole = true;
  m_buffer.assign(CONN_LENGTH_SIZE, '\0');
  protozero::pbf_writer fields(m_buffer);
  fields.add_bytes_vectored(CONN_FLD_NAME, view(prefix), view(name));
  fields.add_int32(CONN_FLD_MORE, 0);
  m_own_end = m_buffer.size();
}

template <class Write>
bool Conn_FormWriter::write(size_t size, Write write) {
  const size_t before = m_buffer.size();
  if (size > CONN_MAX_FRAME || before + size + kMostAround > CONN_MAX_FRAME) {
    return m_is_whole = false;
  }
  try {
    // Room at once, and some for the fields behind, instead of by doubling what is large.
    if (size > kLargeField) m_buffer.reserve(before + size + kLargeField);
    protozero::pbf_writer fields(m_buffer);
    write(fields);
    return true;
  } catch (const std::bad_alloc&) {
    m_buffer.resize(before);
    return m_is_whole = false;
  }
}

bool Conn_FormWriter::write_bytes(uint32_t field, std::string_view bytes) {
  return write(bytes.size(), [&](auto& fields) { fields.add_bytes(field, view(bytes)); });
}

bool Conn_FormWriter::WriteString(uint32_t field, std::string_view text, int ownership) {
  const std::unique_ptr<const char[]> owned(ownership == CONN_FORM_OWNS ? text.data() : nullptr);
  return write_bytes(field, text);
}

bool Conn_FormWriter::WriteBinary(uint32_t field, char* bytes, int length, int ownership) {
  const std::unique_ptr<char[]> owned(ownership == CONN_FORM_OWNS ? bytes : nullptr);
  return write_bytes(field, {bytes, static_cast<size_t>(std::max(length, 0))});
}

char* Conn_FormWriter::WriteInPlace(uint32_t field, size_t length) {
  const bool is_written = write(length, [&](auto&) {
    constexpr uint32_t type = static_cast<uint32_t>(protozero::pbf_wire_type::length_delimited);
    protozero::add_varint_to_buffer(&m_buffer, field << 3 | type);
    protozero::add_varint_to_buffer(&m_buffer, length);
    m_buffer.resize(m_buffer.size() + length);
  });
  return is_written ? m_buffer.data() + m_buffer.size() - length : nullptr;
}

bool Conn_FormWriter::WriteLong(uint32_t field, long value, int) {
  using limits = std::numeric_limits<int32_t>;
  const auto near = std::clamp<long>(value, limits::min(), limits::max());
  return write(0, [&](auto& fields) { fields.add_int32(field, static_cast<int32_t>(near)); });
}

bool Conn_FormWriter::introduce(std::string_view service, int version) {
  std::string introduction;
  protozero::pbf_writer fields(introduction);
  fields.add_bytes(CONN_FLD_SERVICE, view(service));
  fields.add_int32(CONN_FLD_VERSION, version);
  return write(introduction.size(), [&](auto&) { m_buffer.insert(m_own_end, introduction); });
}

std::string_view Conn_FormWriter::finish(bool more) {
  if (m_own_end == 0) begin({});
  m_buffer[m_own_end - 1] = more ? 1 : 0;
  const auto length = static_cast<uint32_t>(m_buffer.size() - CONN_LENGTH_SIZE);
  for (size_t i = 0; i < CONN_LENGTH_SIZE; ++i) {
    m_buffer[i] = static_cast<char>(length >> (8 * (CONN_LENGTH_SIZE - 1 - i)));
  }
  return m_buffer;
}

void Conn_FormWriter::shrink(size_t keeps) {
  if (m_buffer.capacity() > keeps) std::string().swap(m_buffer);
}

// --- reading ---------------------------------------------------------------------------------

bool Conn_FormReader::ReadString(uint32_t field, std::string_view& text) {
  return read_next(m_rest, field, protozero::pbf_wire_type::length_delimited, [&](auto& reader) {
    const protozero::data_view bytes = reader.get_view();
    text = {bytes.data(), bytes.size()};
  });
}

bool Conn_FormReader::ReadString(uint32_t field, RWCString& text) {
  std::string_view bytes;
  if (!ReadString(field, bytes)) return false;
  text = RWCString(bytes);
  return true;
}

bool Conn_FormReader::ReadString(uint32_t field, char** text) {
  std::string_view bytes;
  if (!ReadString(field, bytes)) return false;
  *text = new char[bytes.size() + 1];
  std::copy(bytes.begin(), bytes.end(), *text);
  (*text)[bytes.size()] = '\0';
  return true;
}

bool Conn_FormReader::ReadBinary(uint32_t field, std::string_view& bytes) {
  return ReadString(field, bytes);
}

bool Conn_FormReader::ReadInt(uint32_t field, int& value) {
  return read_next(m_rest, field, protozero::pbf_wire_type::varint,
                   [&](auto& reader) { value = reader.get_int32(); });
}

bool Conn_FormReader::ReadLong(uint32_t field, long& value) {
  int read;
  if (!ReadInt(field, read)) return false;
  value = read;
  return true;
}

uint32_t Conn_FormReader::peek() const {
  try {
    protozero::pbf_reader reader(m_rest.data(), m_rest.size());
    return reader.next() ? reader.tag() : 0;
  } catch (const protozero::exception&) {
    return 0;
  }
}
