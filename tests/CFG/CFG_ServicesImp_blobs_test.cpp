#include <gtest/gtest.h>

#include <fstream>

#include <logging/Log_Capture.h>
#include <support/temporary_folder.h>
#include "test_trees.h"

namespace {

// Written to a tree as a blob and read back; "(failed)" when that fails.
std::string written_and_read(CFG_SubTree& tree, const std::string& bytes, bool base64) {
  const bool written = tree.WriteBlobFromBuffer("p\\blob", bytes.data(),
                                                static_cast<int>(bytes.size()), base64, "utf-8");
  char* buffer = nullptr;
  int length = -1;
  if (!written || !tree.ReadBlobToBuffer("p\\blob", &buffer, length, nullptr)) return "(failed)";
  const std::unique_ptr<char[]> owned(buffer);
  EXPECT_EQ(buffer[length], '\0');
  return std::string(buffer, static_cast<size_t>(length));
}

TEST(Blobs, EveryLengthAndEveryByteComesBack) {
  CFG_SubTree tree("t");
  std::string all_bytes;
  for (int i = 0; i < 10'000'000; ++i) all_bytes += static_cast<char>(i * 2654435761u >> 11);
  for (const size_t length : {1u, 489u, 490u, 491u, 979u, 980u, 981u, 10'000'000u}) {
    const std::string bytes = all_bytes.substr(0, length), text(length, 'x');
    EXPECT_TRUE(written_and_read(tree, bytes, true) == bytes) << length;
    EXPECT_TRUE(written_and_read(tree, bytes, false) == bytes) << length;
    EXPECT_TRUE(written_and_read(tree, text, false) == text) << length;
  }
  EXPECT_EQ(written_and_read(tree, "", false), "");
  EXPECT_EQ(written_and_read(tree, "", true), "(failed)")
      << "a base64 blob of no bytes has no buffer";
}

TEST(Blobs, AreCutIntoNumberedChunksWithADescription) {
  CFG_SubTree tree("t");
  ASSERT_TRUE(tree.WriteBlobFromUTF8String("P\\Blob", std::string(1000, 'x'), false, ""));
  EXPECT_EQ(tree.GetValue("p\\blob\\chunk0000").length(), 490u);
  EXPECT_EQ(tree.GetValue("p\\blob\\chunk0001").length(), 490u);
  EXPECT_EQ(tree.GetValue("p\\blob\\chunk0002").length(), 20u);
  EXPECT_EQ(tree.GetValueNum("p\\blob"), 4);
  const struct {
    bool base64;
    const char *encoding, *description;
  } cases[] = {{false, "", "chunks_num=1"},
               {false, "latin-1", "latin-1/chunks_num=1"},
               {true, "", "base64/chunks_num=1"},
               {true, "utf-8", "base64/utf-8/chunks_num=1"}};
  for (const auto& c : cases) {
    ASSERT_TRUE(tree.WriteBlobFromUTF8String("p\\blob", "text", c.base64, c.encoding));
    EXPECT_EQ(tree.GetValue("p\\blob\\blobencoding"), c.description);
    EXPECT_EQ(tree.GetValueNum("p\\blob"), 2) << "the blob before is replaced";
    RWCString out, encoding;
    EXPECT_TRUE(tree.ReadBlobToUTF8String("p\\blob", out, &encoding));
    EXPECT_EQ(out, "text");
    EXPECT_EQ(encoding, c.description);
  }
}

TEST(Blobs, ChunksOfTextEndBetweenCharacters) {
  CFG_SubTree tree("t");
  const std::string text = std::string(489, 'x') + "\xF0\x9F\x99\x82\xC3\xA4 end";
  ASSERT_TRUE(tree.WriteBlobFromUTF8String("p\\blob", text, false, ""));
  EXPECT_EQ(tree.GetValue("p\\blob\\chunk0000").length(), 493u);
  RWCString out;
  EXPECT_TRUE(tree.ReadBlobToUTF8String("p\\blob", out, nullptr));
  EXPECT_EQ(out.str(), text);
}

TEST(Blobs, ReadingStopsAtTheFirstMissingChunk) {
  CFG_SubTree tree("t");
  tree.WriteBlobFromUTF8String("p\\blob", std::string(490, 'a') + std::string(490, 'b') + "c",
                               false, "");
  tree.DeleteValue("p\\blob\\chunk0001");
  RWCString out;
  Log_Capture capture;
  EXPECT_FALSE(tree.ReadBlobToUTF8String("p\\blob", out, nullptr));
  EXPECT_EQ(out.str(), std::string(490, 'a'));
  EXPECT_TRUE(
      capture.has("read_chunks: chunk0001 is empty, path is p\\blob. Using only existing chunks "
                  "read so far.\n"));
  EXPECT_FALSE(tree.ReadBlobToUTF8String("p\\none", out, nullptr));
  EXPECT_TRUE(capture.has("Subtree not found at path [p\\none]\n"));

  const std::pair<const char*, const char*> described[] = {{"", "ab"},
                                                           {"chunks_num=1", "a"},
                                                           {"chunks_num=0", "a"},
                                                           {"chunks_num=-7", "a"},
                                                           {"chunks_num=99999999999", "a"},
                                                           {"base64/chunks_num=2", ""}};
  for (const auto& [description, expected] : described) {
    CFG_SubTree foreign = tree_of("t", {{"b\\chunk0000", "a"}, {"b\\chunk0001", "b"}});
    foreign.SetValue("b\\blobencoding", description);
    if (*description) foreign.DeleteValue("b\\chunk0001");
    foreign.ReadBlobToUTF8String("b", out, nullptr);
    EXPECT_EQ(out, *expected ? expected : "a") << description;
  }
}

TEST(Blobs, AreFoundBySearchRule) {
  CFG_SubTree tree("t");
  tree.WriteBlobFromUTF8String("s2\\blob", "text", true, "");
  const char* rule[] = {"s1", "s2"};
  char* buffer = nullptr;
  int length = 0;
  ASSERT_TRUE(tree.ReadBlobFromSearchPathsToBuffer("blob", rule, 2, &buffer, length, nullptr));
  EXPECT_EQ(std::string(std::unique_ptr<char[]>(buffer).get(), 4), "text");
  EXPECT_FALSE(tree.ReadBlobFromSearchPathsToBuffer("blob", rule, 1, &buffer, length, nullptr));
}

TEST(Blobs, BadWritesAreRefused) {
  CFG_SubTree tree("t");
  EXPECT_FALSE(tree.WriteBlobFromBuffer("no_backslash", "x", 1, false, ""));
  EXPECT_FALSE(tree.WriteBlobFromBuffer("p\\b", "x", -1, false, ""));
  EXPECT_FALSE(tree.WriteBlobFromBuffer("p\\b", static_cast<const char*>(nullptr), 1, false, ""));
  EXPECT_FALSE(tree.WriteBlobFromBuffer(nullptr, "x", 1, false, ""));
  EXPECT_FALSE(tree.WriteBlobFromFile("p\\b", "/no/such/file", true));
  EXPECT_EQ(shown(tree), "t{}");
}

TEST(Blobs, AFileIsStoredWhole) {
  const TemporaryFolder folder;
  const std::string name = folder / "blob", bytes("a\r\n\0\xFFz", 6);
  std::ofstream(name, std::ios::binary) << bytes;
  CFG_SubTree tree("t");
  EXPECT_TRUE(tree.WriteBlobFromFile("p\\b", name.c_str(), true));
  RWCString out;
  EXPECT_TRUE(tree.ReadBlobToUTF8String("p\\b", out, nullptr));
  EXPECT_EQ(out.str(), bytes);
}

}  // namespace
