#include <system/Sys_NoticeBox.h>

#include <cstdio>

void Sys_NoticeBox(const RWCString& title, const RWCString& text) {
  std::fprintf(stderr, "%s:\n%s\n", title.data(), text.data());
}
