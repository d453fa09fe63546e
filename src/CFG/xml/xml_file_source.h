// An XML document in a file.
#pragma once

#include <xercesc/sax/InputSource.hpp>

#include <system/Sys_File.h>

namespace cfg {

// What is left to read of an open file, once. Nothing is read ahead and nothing is mapped: a
// file that others shorten meanwhile is a document that ends too early. A failed read throws
// parsing_stopped through the parser.
class xml_file_source : public xercesc::InputSource {
 public:
  explicit xml_file_source(Sys_File& file);  // which must outlive this object
  xercesc::BinInputStream* makeStream() const override;

 private:
  class stream;
  Sys_File& m_file;
};

}  // namespace cfg
