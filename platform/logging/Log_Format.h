// The format of a log message, checked against its arguments when compiled.
//
// The syntax is that of printf: flags, width, precision (each also as `*`), the
// lengths h hh l ll j z t L I I32 I64 and these conversions:
//   d i u x X o c     any integer or unscoped enumeration. The argument is written
//                     with its own width, so no length is ever too short for it.
//   f F e E g G a A   double or float, with a point whatever the process's locale is
//   s                 RWCString, std::string, std::string_view, const char*
//   S ls              RWWString, std::wstring, std::wstring_view, const wchar_t*
//   p                 any pointer
//   %%                the per cent sign
// A null text is written as "(null)". A precision cuts text between two UTF-8
// characters. An argument may be a callable without parameters that returns one of
// these; it is called only when the message is written, and no message is when it throws.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include <strings/Export.h>
#include <strings/RWWString.h>

// Public headers must compile as C++17, where a constructor can't be forced to run
// when compiled; the library's own build is what checks their formats.
#if __cplusplus >= 202002L
#define LOG_CONSTEVAL consteval
#define LOG_CHECKS_FORMATS 1
#else
#define LOG_CONSTEVAL constexpr
#define LOG_CHECKS_FORMATS 0
#endif

// What an argument is, as a set: a const char* is text and a pointer.
enum Log_Kind : unsigned char {
  LOG_KIND_NONE = 0,
  LOG_KIND_INTEGER = 1,
  LOG_KIND_REAL = 2,
  LOG_KIND_TEXT = 4,
  LOG_KIND_WIDE_TEXT = 8,
  LOG_KIND_POINTER = 16,
};

// One conversion of a format, from its per cent sign on.
struct Log_Directive {
  const char* begin = nullptr;    // at the per cent sign; null when the format has no more
  const char* length = nullptr;   // behind flags, width and precision
  const char* end = nullptr;      // behind the conversion
  char conversion = 0;            // 0 when it is none that we know
  int stars = 0;                  // width and precision that are taken from arguments
  Log_Kind kind = LOG_KIND_NONE;  // what it takes besides; none for "%%"
};

constexpr bool Log_IsOneOf(char c, std::string_view set) { return set.find(c) != set.npos; }

constexpr Log_Kind Log_KindOf(char conversion, std::string_view length) {
  if (conversion == '%') return LOG_KIND_NONE;
  if (conversion == 'S' || (conversion == 's' && length == "l")) return LOG_KIND_WIDE_TEXT;
  if (conversion == 's' || conversion == 'p') {
    return conversion == 's' ? LOG_KIND_TEXT : LOG_KIND_POINTER;
  }
  return Log_IsOneOf(conversion, "diuxXoc") ? LOG_KIND_INTEGER : LOG_KIND_REAL;
}

constexpr bool Log_IsLength(std::string_view length, char conversion) {
  if (length.empty()) return true;
  if (conversion == 's') return length == "l" || length == "h";
  if (Log_IsOneOf(conversion, "fFeEgGaA")) return length == "l" || length == "L";
  if (!Log_IsOneOf(conversion, "diuxXo")) return false;
  for (const std::string_view known : {"h", "hh", "l", "ll", "j", "z", "t", "I", "I32", "I64"}) {
    if (length == known) return true;
  }
  return false;
}

// The first conversion at or after `from`. Rendering reads a format with the same
// function that checks it.
constexpr Log_Directive Log_NextDirective(const char* from) {
  Log_Directive found;
  while (*from && *from != '%') ++from;
  if (!*from) return found;
  const auto skip_number = [&] {
    if (*from == '*') return void((++found.stars, ++from));
    // What is beyond four digits, or five flags above, is no conversion and thus an error.
    for (int digits = 0; digits < 4 && *from >= '0' && *from <= '9'; ++digits) ++from;
  };
  found.begin = from++;
  for (int flags = 0; flags < 5 && *from && Log_IsOneOf(*from, "-+ #0"); ++flags) ++from;
  skip_number();
  if (*from == '.') ++from, skip_number();
  found.length = from;
  while (*from && Log_IsOneOf(*from, "hljztLI")) ++from;
  if (from != found.length && from[-1] == 'I') {
    while (*from && Log_IsOneOf(*from, "3264")) ++from;
  }
  const std::string_view length(found.length, static_cast<size_t>(from - found.length));
  found.end = *from ? from + 1 : from;
  const bool is_escape = *from == '%' && from == found.begin + 1;
  if (is_escape ||
      (*from && Log_IsOneOf(*from, "diuxXocfFeEgGaAsSp") && Log_IsLength(length, *from))) {
    found.conversion = *from;
    found.kind = Log_KindOf(*from, length);
  }
  return found;
}

// An argument without its type. It refers to text and owns none.
struct Log_Argument {
  template <class T>
  static constexpr Log_Kind kind_of() {
    if constexpr (std::is_integral_v<T>) {
      return LOG_KIND_INTEGER;
    } else if constexpr (std::is_enum_v<T>) {
      return std::is_convertible_v<T, long long> ? LOG_KIND_INTEGER : LOG_KIND_NONE;
    } else if constexpr (std::is_floating_point_v<T>) {
      return LOG_KIND_REAL;
    } else if constexpr (std::is_null_pointer_v<T>) {
      return LOG_KIND_POINTER;
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      return Log_Kind(LOG_KIND_TEXT | (std::is_pointer_v<std::decay_t<T>> ? LOG_KIND_POINTER : 0));
    } else if constexpr (std::is_convertible_v<const T&, std::wstring_view>) {
      return Log_Kind(LOG_KIND_WIDE_TEXT |
                      (std::is_pointer_v<std::decay_t<T>> ? LOG_KIND_POINTER : 0));
    } else if constexpr (std::is_same_v<T, RWWString>) {
      return LOG_KIND_WIDE_TEXT;
    } else if constexpr (std::is_invocable_v<const T&>) {
      return kind_of<std::remove_cv_t<std::remove_reference_t<std::invoke_result_t<const T&>>>>();
    } else {
      return std::is_pointer_v<std::decay_t<T>> ? LOG_KIND_POINTER : LOG_KIND_NONE;
    }
  }

  template <class T>
  explicit Log_Argument(const T& value) : kind(kind_of<T>()) {
    if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      size = sizeof(T);
      is_signed = static_cast<T>(-1) < static_cast<T>(1) && !std::is_same_v<T, bool>;
      integer = static_cast<unsigned long long>(value);
    } else if constexpr (std::is_floating_point_v<T>) {
      real = static_cast<double>(value);
    } else if constexpr (std::is_pointer_v<std::decay_t<T>>) {
      set_text(static_cast<std::decay_t<const T>>(value));
    } else if constexpr (std::is_null_pointer_v<T>) {
      pointer = nullptr;
    } else if constexpr (std::is_same_v<T, RWWString>) {
      set_text(value.view());
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      set_text(std::string_view(value));
    } else {
      set_text(std::wstring_view(value));
    }
  }

  Log_Kind kind;
  bool is_signed = false;
  unsigned size = 0;  // bytes of an integer
  union {
    unsigned long long integer;  // sign-extended
    double real;
    const void* pointer;  // also the begin of a text
  };
  size_t length = 0;  // of a text, in characters

 private:
  template <class C>
  void set_text(std::basic_string_view<C> text) {
    // An empty view may point nowhere, which is not the same as a null text.
    static constexpr C nothing[1] = {};
    pointer = text.data() ? text.data() : nothing;
    length = text.size();
  }
  template <class P>
  void set_text(P* value) {
    pointer = reinterpret_cast<const void*>(value);
    if constexpr (std::is_convertible_v<P*, std::string_view>) {
      if (value) length = std::string_view(value).size();
    } else if constexpr (std::is_convertible_v<P*, std::wstring_view>) {
      if (value) length = std::wstring_view(value).size();
    }
  }
};

// Never defined and not constexpr: the compiler names them in its error.
void Log_error_unknown_conversion_in_format();
void Log_error_format_has_more_conversions_than_arguments();
void Log_error_format_has_fewer_conversions_than_arguments();
void Log_error_argument_does_not_match_its_conversion();

constexpr void Log_CheckFormat(const char* text, const Log_Kind* kinds, size_t count) {
  size_t used = 0;
  const auto take = [&](Log_Kind wanted) {
    if (used == count) return Log_error_format_has_more_conversions_than_arguments();
    if (!(kinds[used++] & wanted)) Log_error_argument_does_not_match_its_conversion();
  };
  for (Log_Directive d = Log_NextDirective(text); d.begin; d = Log_NextDirective(d.end)) {
    if (!d.conversion) Log_error_unknown_conversion_in_format();
    for (int star = 0; star < d.stars; ++star) take(LOG_KIND_INTEGER);
    if (d.kind) take(d.kind);
  }
  if (used != count) Log_error_format_has_fewer_conversions_than_arguments();
}

// A checked format, and the place where it was written.
template <class... A>
struct Log_CheckedFormat {
  // Converts from a literal or any other constant text.
  LOG_CONSTEVAL Log_CheckedFormat(const char* format, int at_line = __builtin_LINE(),
                                  const char* in_function = __builtin_FUNCTION())
      : text(format), function(in_function), line(at_line) {
#if LOG_CHECKS_FORMATS
    constexpr Log_Kind kinds[] = {Log_Argument::kind_of<A>()..., LOG_KIND_NONE};
    Log_CheckFormat(format, kinds, sizeof...(A));
#endif
  }
  const char* text;
  const char* function;
  int line;
};

template <class T>
struct Log_Identity {
  using type = T;
};
// The parameter type of a function that takes a format and `const A&...`: A is
// deduced from the arguments alone. Such a function can pass both on.
template <class... A>
using Log_Format = Log_CheckedFormat<typename Log_Identity<A>::type...>;

// The text of a message. A conversion that finds no argument of its kind (possible only
// where formats are not checked) is written as it stands.
HALVORIA_API std::string Log_Render(const char* format, std::initializer_list<Log_Argument> args);
