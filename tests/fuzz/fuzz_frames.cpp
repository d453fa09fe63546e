// Frames: a stream of any bytes, cut into any pieces, falls into the frames that a plain reader of
// the whole finds, and of each the fields of the connection are read without a fault.
//
// The input is a byte that says how it is cut and how large the buffer is, and the stream.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <connection/Conn_Form.h>
#include <connection/Conn_FrameSplitter.h>

#include "reach.h"

namespace {

Reach frames_split("a stream of several frames is split");
Reach frame_refused("a frame is too long");

using Found = Conn_FrameSplitter::Found;
constexpr size_t kMaxFrame = 1000;

struct Split {
  std::vector<std::string> frames;
  bool is_too_long = false;
};

Split plain_split(std::string_view stream) {
  Split split;
  while (stream.size() >= CONN_LENGTH_SIZE) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(stream.data());
    const size_t length = size_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
    if (length > kMaxFrame) {
      split.is_too_long = true;
      return split;
    }
    if (stream.size() - CONN_LENGTH_SIZE < length) break;
    split.frames.emplace_back(stream.substr(CONN_LENGTH_SIZE, length));
    stream.remove_prefix(CONN_LENGTH_SIZE + length);
  }
  return split;
}

Split split_in_pieces(std::string_view stream, unsigned how) {
  Conn_FrameSplitter splitter(size_t{1} << (how % 12), kMaxFrame);
  Split split;
  for (unsigned turn = how; !stream.empty() && !split.is_too_long; turn = turn * 5 + 1) {
    size_t size;
    char* room = splitter.room(size);
    if (size == 0) abort();
    size = stream.copy(room, std::min<size_t>(size, 1 + turn % 97));
    splitter.received(size);
    stream.remove_prefix(size);
    std::string_view frame;
    Found found;
    while ((found = splitter.next(frame)) == Found::FRAME) split.frames.emplace_back(frame);
    split.is_too_long = found == Found::TOO_LONG;
    if (!split.is_too_long) splitter.shrink();
  }
  return split;
}

void read_own_fields(std::string_view frame) {
  Conn_FormReader fields(frame);
  std::string_view text;
  int number;
  fields.ReadString(CONN_FLD_NAME, text);
  fields.ReadInt(CONN_FLD_MORE, number);
  fields.ReadString(CONN_FLD_SERVICE, text);
  fields.ReadInt(CONN_FLD_VERSION, number);
  fields.ReadString(CONN_FLD_ERROR, text);
  if (!text.empty() &&
      (text.data() < frame.data() || text.data() + text.size() > frame.data() + frame.size()))
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view stream(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Split plain = plain_split(stream), split = split_in_pieces(stream, data[0]);
  if (plain.frames != split.frames || plain.is_too_long != split.is_too_long) abort();
  frames_split(split.frames.size() > 1);
  frame_refused(split.is_too_long);
  for (const std::string& frame : split.frames) read_own_fields(frame);
  return 0;
}
