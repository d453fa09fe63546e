// Frames out of the bytes of a stream.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <strings/Export.h>

// Keeps what was received until it has been read. Knows no socket: bytes are put where room()
// says. What a length claims is believed as it arrives: the buffer grows by what was received,
// never by what is announced. One thread. Throws std::bad_alloc from room().
class HALVORIA_API Conn_FrameSplitter {
 public:
  enum class Found { FRAME, NOTHING_WHOLE, TOO_LONG };

  // The buffer's size as long as no frame needs more, and the most bytes that a frame may have.
  Conn_FrameSplitter(size_t usual_size, size_t max_frame);

  // Where the next bytes go, `size` of them at most and at least one. Ends the frames' views.
  char* room(size_t& size);
  void received(size_t size) { m_end += size; }
  // The next frame, without its length: a view into the buffer.
  Found next(std::string_view& frame);
  // Whether there are bytes that no frame was made of yet.
  bool has_begun() const { return m_begin != m_end; }
  // What the length of the frame that has begun says; 0 while it is not there.
  size_t claimed() const;
  void clear() { m_begin = m_end = 0; }
  static constexpr size_t LARGE = size_t{1} << 20;
  // Gives a buffer back that is larger than `keeps` when nothing is in it. Ends the frames' views.
  void shrink(size_t keeps = LARGE);

 private:
  struct Free {
    void operator()(char* bytes) const { std::free(bytes); }
  };
  void resize(size_t size);

  const size_t m_usual_size;
  const size_t m_max_frame;
  std::unique_ptr<char, Free> m_bytes;
  size_t m_size = 0;
  size_t m_begin = 0;  // of what is not read
  size_t m_end = 0;
};
