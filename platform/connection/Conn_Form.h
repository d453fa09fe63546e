// Forms: the numbered fields of a request or a response.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// A frame is four bytes of length, most significant first, and that many bytes of fields in
// the wire format of Protocol Buffers. The fields below 100 are the connection's own; a form
// begins with the first two of them, in this order. A form is one frame, or several, of which
// each but the last says that more follow. docs/protocol.md draws it.
enum Conn_Field : uint32_t {
  CONN_FLD_NAME = 1,     // string: what is asked for, or the prefix and what was asked for
  CONN_FLD_MORE = 2,     // int32 1: the form goes on in the next frame; 0: it ends here
  CONN_FLD_SERVICE = 3,  // string: the service meant, in the first request of a connection
  CONN_FLD_VERSION = 4,  // int32: of the protocol, likewise
  CONN_FLD_ERROR = 5,    // string: why the request was refused; then no other field follows
  CONN_FLD_PRODUCT = 6,  // string: version of the product that answers a ping
};
constexpr int CONN_PROTOCOL_VERSION = 1;
constexpr size_t CONN_LENGTH_SIZE = 4;
constexpr size_t CONN_MAX_FRAME = 0x7fffffff;  // bytes of fields
constexpr char CONN_PING[] = "CONN_PING";      // the request that every service answers

// Who frees what is handed to a writer.
enum Conn_Ownership : int {
  CONN_FORM_OWNS = 1,    // passes to the form, which frees it with delete[]
  CONN_FORM_COPIES = 3,  // stays the caller's
};

// Writes the fields of one frame into a buffer that it keeps for the next. One thread.
class HALVORIA_API Conn_FormWriter {
 public:
  // Starts a frame anew. Its name is the prefix and the name.
  void begin(std::string_view name, std::string_view prefix = {});
  // All answer false, and add nothing, once the frame would exceed 2 GB or the memory there is.
  bool WriteString(uint32_t field, std::string_view text, int ownership = CONN_FORM_COPIES);
  // 32 bits on the wire: what is beyond them is written as the nearest number that is not.
  bool WriteLong(uint32_t field, long value, int = 0);
  bool WriteInt(uint32_t field, int value) { return WriteLong(field, value); }
  bool WriteBinary(uint32_t field, char* bytes, int length, int ownership);
  // So many bytes of a field, which the caller writes before the next call. Null when it is too
  // long.
  char* WriteInPlace(uint32_t field, size_t length);
  // Says, before all other fields, which service is meant and which protocol is spoken.
  bool introduce(std::string_view service, int version);
  // The whole frame with its length; valid until the next call of begin. With `more`, the form
  // goes on in a next frame.
  std::string_view finish(bool more = false);
  // Whether every field so far was added.
  bool is_whole() const { return m_is_whole; }
  // Bytes written so far, and what is behind them, for a field that is filled in place.
  size_t size() const { return m_buffer.size(); }
  std::string& buffer() { return m_buffer; }
  static constexpr size_t LARGE = size_t{1} << 20;
  // Gives a buffer back that is larger than `keeps`.
  void shrink(size_t keeps = LARGE);

 private:
  bool write_bytes(uint32_t field, std::string_view bytes);
  template <class Write>
  bool write(size_t size, Write write);

  std::string m_buffer;
  size_t m_own_end = 0;  // behind the name and whether more follow
  bool m_is_whole = true;
};

// Reads the fields of a frame in the order in which they were written, in place. A field that
// is not the next one, or of another type, is not read. One thread.
class HALVORIA_API Conn_FormReader {
 public:
  Conn_FormReader() = default;
  explicit Conn_FormReader(std::string_view fields) : m_rest(fields) {}

  // False when the next field is another one, or there is none, or it is not well formed.
  bool ReadString(uint32_t field, std::string_view& text);
  bool ReadString(uint32_t field, RWCString& text);
  // A copy that the caller frees with delete[], NUL-terminated.
  bool ReadString(uint32_t field, char** text);
  bool ReadLong(uint32_t field, long& value);
  bool ReadInt(uint32_t field, int& value);
  bool ReadBinary(uint32_t field, std::string_view& bytes);
  // The number of the next field, 0 when there is none or it is not well formed.
  uint32_t peek() const;
  bool is_done() const { return m_rest.empty(); }
  std::string_view rest() const { return m_rest; }

 private:
  std::string_view m_rest;
};
