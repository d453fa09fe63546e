// The layout of a document as it is written: blanks and line ends are exactly these.
//
//   <?xml  version="1.0" encoding="UTF-8"?>
//   <!DOCTYPE tree [
//   ... the declarations of the six elements ...
//   ]>
//   <tree>
//   <branch>
//                                                        empty line, in the first branch only
//   <node>                                               per node, a key before what is below it
//   <path_segment>%s</path_segment>                      its whole path
//   <parent_path_segment>%s</parent_path_segment>        that path before its last backslash
//   <value>%s</value>                                    empty for a key
//   </node>
//                                                        empty line
//   </branch>
//                                                        empty line and "<branch>" per further
//   </tree>                                              tree
//
// %s is escaped as xml_escapes.h says.
#pragma once

#include <string_view>

namespace cfg::xml_layout {

inline constexpr std::string_view prologue =
    "<?xml  version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE tree [\n"
    "<!ELEMENT tree (branch)+>\n"
    "<!ELEMENT branch (node)+>\n"
    "<!ELEMENT node (path_segment,parent_path_segment?,value?)>\n"
    "<!ELEMENT path_segment (#PCDATA)>\n"
    "<!ELEMENT parent_path_segment (#PCDATA)>\n"
    "<!ELEMENT value (#PCDATA)>\n"
    "]>\n"
    "<tree>\n"
    "<branch>\n\n";

inline constexpr std::string_view before_path = "<node>\n<path_segment>";
inline constexpr std::string_view before_parent_path = "</path_segment>\n<parent_path_segment>";
inline constexpr std::string_view before_value = "</parent_path_segment>\n<value>";
inline constexpr std::string_view behind_value = "</value>\n</node>\n\n";

inline constexpr std::string_view branch_end = "</branch>\n";
inline constexpr std::string_view next_branch = "\n<branch>\n";
inline constexpr std::string_view document_end = "</tree>\n";

}  // namespace cfg::xml_layout
