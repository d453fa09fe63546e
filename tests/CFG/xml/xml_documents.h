// XML documents for tests, put together from raw text.
#pragma once

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include <logging/Log_Capture.h>
#include "../temporary_folder.h"
#include "../test_trees.h"

inline const std::string xml_prologue =
    "<?xml  version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE tree [\n"
    "<!ELEMENT tree (branch)+>\n"
    "<!ELEMENT branch (node)+>\n"
    "<!ELEMENT node (path_segment,parent_path_segment?,value?)>\n"
    "<!ELEMENT path_segment (#PCDATA)>\n"
    "<!ELEMENT parent_path_segment (#PCDATA)>\n"
    "<!ELEMENT value (#PCDATA)>\n"
    "]>\n";

// A node as people write it by hand.
inline std::string xml_node(const std::string& path, const std::string& value = "") {
  return "<node><path_segment>" + path + "</path_segment><value>" + value + "</value></node>\n";
}
inline std::string xml_branch(std::initializer_list<std::pair<const char*, const char*>> nodes) {
  std::string branch = "<branch>";
  for (const auto& [path, value] : nodes) branch += xml_node(path, value);
  return branch + "</branch>\n";
}
inline std::string xml_tree(const std::string& branches) {
  return xml_prologue + "<tree>\n" + branches + "</tree>\n";
}
inline std::string repeated(const std::string& text, size_t times) {
  std::string all;
  for (size_t i = 0; i < times; ++i) all += text;
  return all;
}

inline void put_file(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}
inline std::string get_file(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline std::string unpacked(const std::filesystem::path& packed) {
  std::string bytes;
  if (FILE* pipe = popen(("gzip -dc '" + packed.string() + "'").c_str(), "r")) {
    char block[65536];
    for (size_t n; (n = fread(block, 1, sizeof block, pipe)) > 0;) bytes.append(block, n);
    pclose(pipe);
  }
  return bytes;
}

// The last message that is not only about the course of things.
inline std::string last_said(const Log_Capture& capture) {
  std::string last;
  for (const Log_Capture::Line& line : capture.lines()) {
    if (line.level < LOG_LEVEL_DETAIL) last = line.text;
  }
  return last;
}

inline SubTreePtr import_buffer(const std::string& document) {
  CFG_MemoryRepository reader(nullptr);
  return SubTreePtr(
      reader.ImportXmlBufferAsCfgSubTree(reinterpret_cast<const unsigned char*>(document.data()),
                                         static_cast<unsigned>(document.size())));
}
