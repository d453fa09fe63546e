#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <connection/Conn_Form.h>
#include <connection/Conn_FrameSplitter.h>
#include <gtest/gtest.h>

namespace {

constexpr uint32_t kFirst = 5020002, kSecond = 5020016, kThird = 5020007, kToken = 1970002;

// The fields of a frame that the writer has finished, without length and own fields.
Conn_FormReader fields_of(std::string_view frame, std::string_view wanted_name, int wanted_more) {
  size_t length = 0;
  for (size_t i = 0; i < CONN_LENGTH_SIZE; ++i) {
    length = length << 8 | static_cast<unsigned char>(frame[i]);
  }
  EXPECT_EQ(length, frame.size() - CONN_LENGTH_SIZE);
  Conn_FormReader reader(frame.substr(CONN_LENGTH_SIZE));
  std::string_view name;
  int more = -1;
  EXPECT_TRUE(reader.ReadString(CONN_FLD_NAME, name) && reader.ReadInt(CONN_FLD_MORE, more));
  EXPECT_EQ(name, wanted_name);
  EXPECT_EQ(more, wanted_more);
  return reader;
}

TEST(Forms, ReadBackWhatWasWritten) {
  const std::string with_nul("a\0b", 3), large(200000, 'l');
  Conn_FormWriter form;
  for (const bool more : {false, true}) {
    form.begin("NAME", "PREFIX_");
    auto* owned = new char[4]{'o', 'w', 'n', 's'};
    EXPECT_TRUE(form.WriteString(kFirst, with_nul));
    EXPECT_TRUE(form.WriteBinary(kThird, owned, 4, CONN_FORM_OWNS));
    EXPECT_TRUE(form.WriteString(kToken, large) && form.WriteString(kFirst, ""));
    EXPECT_TRUE(form.introduce("SERVICE", 7));
    Conn_FormReader reader = fields_of(form.finish(more), "PREFIX_NAME", more);
    std::string_view text;
    int version;
    RWCString copied;
    char* allocated = nullptr;
    EXPECT_TRUE(reader.ReadString(CONN_FLD_SERVICE, text) && text == "SERVICE");
    EXPECT_TRUE(reader.ReadInt(CONN_FLD_VERSION, version) && version == 7);
    EXPECT_EQ(reader.peek(), kFirst);
    EXPECT_TRUE(reader.ReadString(kFirst, &allocated));
    const std::unique_ptr<char[]> freed(allocated);
    EXPECT_EQ(std::string(allocated, 4), with_nul + '\0');
    EXPECT_TRUE(reader.ReadBinary(kThird, text) && text == "owns");
    EXPECT_TRUE(reader.ReadString(kToken, copied) && copied.str() == large);
    EXPECT_TRUE(reader.ReadString(kFirst, text) && text.empty());
    EXPECT_TRUE(reader.is_done() && reader.peek() == 0);
    form.shrink();
  }
}

TEST(Forms, HaveNumbersOf32Bits) {
  const std::pair<long, long> rows[] = {{0, 0},
                                        {-1, -1},
                                        {INT_MAX, INT_MAX},
                                        {INT_MIN, INT_MIN},
                                        {LONG_MAX, INT_MAX},
                                        {LONG_MIN, INT_MIN}};
  Conn_FormWriter form;
  for (const auto& [written, wanted] : rows) {
    form.begin("N");
    EXPECT_TRUE(form.WriteLong(kSecond, written));
    Conn_FormReader reader = fields_of(form.finish(), "N", 0);
    long read;
    EXPECT_TRUE(reader.ReadLong(kSecond, read));
    EXPECT_EQ(read, wanted);
  }
  // A tag of four bytes, and ten of a negative number, as any decoder expects it.
  form.begin("N");
  const size_t before = form.size();
  form.WriteInt(kSecond, -2);
  EXPECT_EQ(form.buffer().substr(before),
            "\x80\x97\x93\x13\xfe\xff\xff\xff\xff\xff\xff\xff\xff\x01");
}

TEST(Forms, GiveNoFieldOutOfOrderOrOfAnotherType) {
  Conn_FormWriter form;
  form.begin("N");
  form.WriteString(kFirst, "text");
  form.WriteInt(kSecond, 5);
  Conn_FormReader reader = fields_of(form.finish(), "N", 0);
  std::string_view text = "untouched";
  int number = -7;
  char* allocated = nullptr;
  EXPECT_FALSE(reader.ReadInt(kSecond, number) || reader.ReadInt(kFirst, number));
  EXPECT_FALSE(reader.ReadString(kSecond, text) || reader.ReadString(kSecond, &allocated));
  EXPECT_TRUE(text == "untouched" && number == -7 && !allocated);
  EXPECT_TRUE(reader.ReadString(kFirst, text) && reader.ReadInt(kSecond, number));
}

TEST(Forms, AreNotReadBeyondTheirEnd) {
  Conn_FormWriter form;
  form.begin("N");
  form.WriteString(kFirst, "some text");
  form.WriteInt(kSecond, -5);
  form.WriteString(kThird, std::string(300, 'x'));
  const std::string whole(form.finish().substr(CONN_LENGTH_SIZE));
  for (size_t cut = 0; cut < whole.size(); ++cut) {
    const std::string copy = whole.substr(0, cut);  // so that a checker sees its end
    Conn_FormReader reader(copy);
    std::string_view text;
    int number, more;
    EXPECT_FALSE(reader.ReadString(CONN_FLD_NAME, text) && reader.ReadInt(CONN_FLD_MORE, more) &&
                 reader.ReadString(kFirst, text) && reader.ReadInt(kSecond, number) &&
                 reader.ReadString(kThird, text));
  }
  const std::string hostile[] = {
      "\x0a\xff\xff\xff\xff\x0f",                          // a length of 4 GB
      "\x0a\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01",      // the largest
      "\x0a\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01",  // one too many bytes of it
      "\x0b",                                              // a type that is not used any more
      "\x0f",                                              // a type that there is not
      std::string("\0\0", 2),                              // field 0
  };
  for (const std::string& bytes : hostile) {
    Conn_FormReader reader(bytes);
    std::string_view text;
    int number;
    EXPECT_FALSE(reader.ReadString(1, text) || reader.ReadInt(1, number));
    EXPECT_FALSE(reader.is_done());
  }
}

TEST(Forms, RefuseWhatIsTooLarge) {
  Conn_FormWriter form;
  form.begin("N");
  form.WriteString(kFirst, "kept");
  const size_t before = form.size();
  EXPECT_TRUE(form.is_whole());
  EXPECT_FALSE(form.WriteString(kSecond, {"no byte of it is read", size_t{1} << 31}));
  EXPECT_FALSE(form.is_whole());
  EXPECT_EQ(form.size(), before);
  form.begin("N");
  EXPECT_TRUE(form.is_whole());
}

// --- frames --------------------------------------------------------------------------------------

std::string framed(const std::string& fields) {
  std::string frame;
  for (int shift = 24; shift >= 0; shift -= 8) frame += static_cast<char>(fields.size() >> shift);
  return frame + fields;
}

// Gives the stream to a splitter in pieces of at most that size.
std::vector<std::string> split(Conn_FrameSplitter& splitter, std::string_view stream,
                               size_t piece) {
  std::vector<std::string> frames;
  while (!stream.empty()) {
    size_t size;
    char* room = splitter.room(size);
    EXPECT_GT(size, 0u);
    size = stream.copy(room, std::min(size, piece));
    splitter.received(size);
    stream.remove_prefix(size);
    std::string_view frame;
    while (splitter.next(frame) == Conn_FrameSplitter::Found::FRAME) frames.emplace_back(frame);
    splitter.shrink();
  }
  return frames;
}

TEST(Frames, AreTheSameInWhateverPiecesTheyCome) {
  const std::vector<std::string> wanted = {
      "", "a", std::string(10, 'b'), std::string(64, 'c'), "", std::string(5000, 'd'), "e"};
  std::string stream;
  for (const auto& fields : wanted) stream += framed(fields);
  for (const size_t usual : {1, 8, 64, 100000}) {
    for (size_t piece = 1; piece <= 80; ++piece) {
      Conn_FrameSplitter splitter(usual, 5000);
      EXPECT_EQ(split(splitter, stream, piece), wanted) << usual << ' ' << piece;
      EXPECT_FALSE(splitter.has_begun());
    }
  }
}

TEST(Frames, TakeNoMemoryForALengthThatIsOnlyClaimed) {
  Conn_FrameSplitter splitter(64, CONN_MAX_FRAME);
  size_t taken = 0;
  const std::string begin("\x7f\xff\xff\xff", 4);
  EXPECT_TRUE(split(splitter, begin + std::string(1000, 'x'), 50).empty());
  EXPECT_EQ(splitter.claimed(), CONN_MAX_FRAME);
  splitter.room(taken);
  EXPECT_LE(taken, 2048u);

  std::string_view frame;
  for (const char* beyond : {"\x80\0\0\0", "\xff\xff\xff\xff"}) {
    Conn_FrameSplitter other(64, CONN_MAX_FRAME);
    EXPECT_TRUE(split(other, {beyond, 4}, 4).empty());
    EXPECT_EQ(other.next(frame), Conn_FrameSplitter::Found::TOO_LONG);
  }
}

}  // namespace
