// What a string means among other texts, for each C++ standard that a caller may compile with.
#pragma once

#include <gtest/gtest.h>

#include <strings/RWCString.h>

static_assert(!std::is_constructible_v<RWCString, int>, "0 must not become a null text");
static_assert(!std::is_constructible_v<RWCString, std::nullptr_t>);
// A view would outlive a temporary text.
static_assert(std::is_convertible_v<const RWCString&, std::string_view>);
static_assert(!std::is_convertible_v<RWCString, std::string_view>);
static_assert(std::is_convertible_v<RWCString, std::string>);

template <class Text>
void expect_order_around(const Text& text) {
  const RWCString less("ab"), same("abc"), more("abcd");
  EXPECT_TRUE(same == text && text == same && !(same != text) && !(text != same));
  EXPECT_TRUE(less != text && text != less && more != text && text != more);
  EXPECT_TRUE(less < text && text < more && more > text && text > less);
  EXPECT_TRUE(!(same < text) && !(text < same) && !(same > text) && !(text > same));
  EXPECT_TRUE(less <= text && same <= text && text <= same && text >= same && more >= text);
  EXPECT_FALSE(text <= less || more <= text || less >= text || text >= more);
}

inline RWCString temporary() { return "abc"; }

// static: each standard has its own.
static void expect_texts_go_together() {
  const char array[] = "abc";
  const char* pointer = array;
  expect_order_around(array);
  expect_order_around(pointer);
  expect_order_around(std::string(array));
  expect_order_around(std::string_view(array));
  expect_order_around(temporary());
  EXPECT_TRUE(RWCString("a\0b", 3) != "a" && RWCString("a\0b", 3) == std::string_view("a\0b", 3));

  std::string text = temporary();
  text = RWCString("x") + temporary() + 'y' + "z";
  text += temporary();
  EXPECT_EQ(text, "xabcyzabc");
  RWCString appended = text;
  appended += temporary();
  appended.append(temporary()).replace(0, 1, temporary());
  EXPECT_EQ(appended, "abcabcyzabcabcabc");
  EXPECT_EQ(appended.index(temporary(), 1), 3u);
  EXPECT_EQ(temporary().str(), "abc");
  EXPECT_TRUE(RWCString().empty() && !appended.empty());
}
