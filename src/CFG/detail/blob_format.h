// How a run of bytes is kept in the values of one key.
//
//   chunk0000, chunk0001, ...   the bytes in order, at most 490 in each; a chunk is longer where
//                               490 bytes would end inside a UTF-8 character
//   blobencoding                parts joined by `/`: "base64" when the chunks hold base64 text,
//                               the caller's name for the encoding, "chunks_num=" and the
//                               number of chunks
#pragma once

#include <string>
#include <string_view>

#include <strings/RWCString.h>

namespace cfg {

constexpr char blob_description_name[] = "blobencoding";

// The name of the value that holds chunk `i`.
RWCString chunk_name(int i);

// The first chunk of `bytes`; empty at the end. With `whole_characters` it does not end
// inside a UTF-8 character.
std::string_view first_chunk(std::string_view bytes, bool whole_characters);

struct blob_description {
  // As written with a blob of `chunks` chunks.
  static RWCString text(bool base64, const RWCString& encoding, int chunks);
  // As read; `values` is the number of values under the key.
  blob_description(const RWCString& text, int values);

  bool base64 = false;
  int chunks;
};

}  // namespace cfg
