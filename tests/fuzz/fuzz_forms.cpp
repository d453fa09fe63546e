// Forms: of any bytes, each way to read a field takes it or leaves it; and what is written is read
// back.
//
// The input is read as fields, and is the script of what is written: a byte for the kind and the
// length of a field, two for its number, and the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include <connection/Conn_Form.h>

#include "reach.h"

namespace {

Reach fields_read("all fields of a frame of the input are read");
Reach form_compared("a form of several fields is written and read");

struct Field {
  uint32_t number;
  bool is_text;
  std::string_view text;
  long value;
};

// Numbers like those of a service, and none of the few that the format keeps for itself.
uint32_t field_number(unsigned low) { return 5020000 + low; }

std::vector<Field> fields_of(std::string_view script) {
  std::vector<Field> fields;
  while (script.size() >= 3) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(script.data());
    const size_t length = std::min<size_t>(bytes[0] & 0x7f, script.size() - 3);
    const std::string_view text = script.substr(3, length);
    long value = static_cast<signed char>(bytes[2]);
    for (const char c : text.substr(0, 2)) value = value * 256 + c;
    fields.push_back({field_number(bytes[1]), bytes[0] < 0x80, text, value});
    script.remove_prefix(3 + length);
  }
  return fields;
}

void write_and_read(const std::vector<Field>& script) {
  Conn_FormWriter form;
  form.begin("NAME", "RES_");
  for (const Field& field : script) {
    const bool is_written = field.is_text ? form.WriteString(field.number, field.text)
                                          : form.WriteLong(field.number, field.value);
    if (!is_written) abort();
  }
  form.introduce("SERVICE", 1);
  Conn_FormReader reader(form.finish(true).substr(CONN_LENGTH_SIZE));
  std::string_view text;
  int more, version;
  if (!reader.ReadString(CONN_FLD_NAME, text) || text != "RES_NAME") abort();
  if (!reader.ReadInt(CONN_FLD_MORE, more) || more != 1) abort();
  if (!reader.ReadString(CONN_FLD_SERVICE, text) || text != "SERVICE") abort();
  if (!reader.ReadInt(CONN_FLD_VERSION, version) || version != 1) abort();
  for (const Field& field : script) {
    long value;
    if (reader.peek() != field.number) abort();
    if (field.is_text != reader.ReadString(field.number, text)) abort();
    if (!field.is_text && (!reader.ReadLong(field.number, value) || value != field.value)) abort();
    if (field.is_text && text != field.text) abort();
  }
  if (!reader.is_done()) abort();
  form_compared(script.size() > 2);
}

void read_all(std::string_view bytes) {
  Conn_FormReader reader(bytes);
  for (unsigned turn = 0; !reader.is_done(); ++turn) {
    const uint32_t number = reader.peek();
    const size_t before = reader.rest().size();
    std::string_view view;
    RWCString copy;
    char* allocated = nullptr;
    long value;
    int small;
    bool is_text = false;
    switch (turn % 4) {
      case 0:
        is_text = reader.ReadString(number, view);
        break;
      case 1:
        is_text = reader.ReadString(number, copy);
        break;
      case 2:
        is_text = reader.ReadString(number, &allocated);
        break;
      case 3:
        is_text = reader.ReadBinary(number, view);
        break;
    }
    const std::unique_ptr<char[]> owned(allocated);
    const bool is_read =
        is_text || (turn % 2 ? reader.ReadLong(number, value) : reader.ReadInt(number, small));
    if (is_read && (number == 0 || reader.rest().size() >= before)) abort();
    if (!is_read && reader.rest().size() != before) abort();
    if (!is_read) return;
  }
  fields_read(!bytes.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  read_all(input);
  write_and_read(fields_of(input));
  return 0;
}
