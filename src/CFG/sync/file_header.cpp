#include <CFG/sync/file_header.h>

#include <charconv>

#include <logging/Logger.h>

namespace cfg {
namespace {

constexpr Log_Logger logger("src/CFG/CFG_SynchronizedFileRepository", 502);

struct TextField {
  const char* name;
  size_t offset, size;
  RWCString Synced_Cfg_File_Header::*text;
};
constexpr TextField text_fields[] = {
    {"magic", 0, 7, &Synced_Cfg_File_Header::magic},
    {"format version", 7, 6, &Synced_Cfg_File_Header::format_version},
    {"product version", 13, 9, &Synced_Cfg_File_Header::product_version},
    {"sync id", 24, 129, &Synced_Cfg_File_Header::sync_id},
    {"user id", 153, 31, &Synced_Cfg_File_Header::user_id},
    {"sequence", 184, 32, &Synced_Cfg_File_Header::sequence},
};
constexpr size_t kResetCount = 216, kFileType = 220;

}  // namespace

Synced_Cfg_File_Header Synced_Cfg_File_Header::read(std::string_view bytes) {
  std::string whole(bytes.substr(0, SIZE));
  whole.resize(SIZE);
  Synced_Cfg_File_Header header;
  for (const TextField& field : text_fields) {
    const std::string_view text = std::string_view(whole).substr(field.offset, field.size);
    header.*field.text = RWCString(text.substr(0, text.find('\0')));
  }
  header.reset_count = 0;
  for (size_t i = 0; i < sizeof header.reset_count; ++i) {
    header.reset_count |= uint32_t{static_cast<unsigned char>(whole[kResetCount + i])} << 8 * i;
  }
  header.file_type = whole[kFileType];
  return header;
}

int Synced_Cfg_File_Header::format_number() const {
  const std::string_view text = format_version.view();
  int number = 0;
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
  return fault == std::errc() && end == text.data() + text.size() ? number : 0;
}

std::string Synced_Cfg_File_Header::bytes(const char*& misfit) const {
  std::string made(SIZE, '\0');
  for (const TextField& field : text_fields) {
    const std::string_view text = (this->*field.text).view();
    if (text.size() >= field.size || text.find('\0') != text.npos) {
      misfit = field.name;
      return std::string();
    }
    text.copy(made.data() + field.offset, text.size());
  }
  for (size_t i = 0; i < sizeof reset_count; ++i) {
    made[kResetCount + i] = static_cast<char>(reset_count >> 8 * i);
  }
  made[kFileType] = file_type;
  misfit = nullptr;
  return made;
}

int compare_sequence_numbers(const RWCString& a, const RWCString& b) {
  logger.trace("compare_sequence_numbers() : Start\n");
  const std::string_view first = a.isNull() ? "0" : a.view(), second = b.isNull() ? "0" : b.view();
  if (first.size() != second.size()) return first.size() < second.size() ? -1 : 1;
  const int order = first.compare(second);
  return (order > 0) - (order < 0);
}

RWCString incremented_sequence_number(const RWCString& number) {
  std::string next(number.isNull() ? "0" : number.view());
  size_t at = next.size();
  while (at > 0 && next[at - 1] == '9') next[--at] = '0';
  if (at > 0) {
    ++next[at - 1];
  } else {
    next.insert(next.begin(), '1');
  }
  logger.trace("original Sequence: %s increment %s \n", number, next);
  return RWCString(next);
}

}  // namespace cfg
