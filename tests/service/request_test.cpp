// Requests taken apart, and who gets how much of what when.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <new>

#include <CFG/CFG_SubTree.h>
#include <connection/Conn_Form.h>
#include <service/answer_room.h>
#include <service/quota.h>
#include <service/request.h>
#include <service/stores.h>
#include <service/workers.h>
#include <thread/ThreadEvent.h>
#include "../CFG/temporary_folder.h"

namespace {

using namespace cfg::protocol;
using service::Caller;
using service::Request;
using Clock = std::chrono::steady_clock;

constexpr char with_nul[] = {'a', '\0', 'b'};

// A request's fields as the connection hands them on: behind its own ones.
struct Fields {
  Conn_FormWriter writer;
  size_t own = 0;

  Fields() {
    writer.begin("X");
    own = writer.size();
  }
  Fields& text(Field field, std::string_view value) {
    writer.WriteString(field, value);
    return *this;
  }
  Fields& number(Field field, long value) {
    writer.WriteLong(field, value);
    return *this;
  }
  Fields& header() { return text(CFG_FLD_USER_NAME, "mia").text(CFG_FLD_APPLICATION, "viewer"); }
  std::string_view view() { return std::string_view(writer.buffer()).substr(own); }
};

std::string read(Fields& fields, const char* command, Caller& caller, Request& request) {
  std::string fault;
  const bool is_read =
      service::read_request(fields.view(), *find_command(command), caller, request, fault);
  return is_read ? "read" : fault;
}

TEST(Requests, ArgumentsStandInTheOrderOfTheTable) {
  Caller caller;
  Request request;
  Fields merge;
  merge.header()
      .text(CFG_FLD_PATH, "name")
      .number(CFG_FLD_COUNT, 2)
      .text(CFG_FLD_PATH, "halvoria\\a")
      .text(CFG_FLD_PATH, "")
      .number(CFG_FLD_MERGE, -1);
  EXPECT_EQ(read(merge, "CFG_GET_SUB_MERGE", caller, request), "read");
  EXPECT_EQ(caller.user, "mia");
  EXPECT_EQ(caller.application, "viewer");
  EXPECT_EQ(request.path, "name");
  EXPECT_EQ(request.merge, -1);
  ASSERT_EQ(request.rules.size(), 2u);
  EXPECT_EQ(request.rules[0], "halvoria\\a");

  Fields set;
  set.header()
      .text(CFG_FLD_SECURITY_TOKEN, "t0ken")
      .text(CFG_FLD_PATH, "p")
      .text(CFG_FLD_VALUE, "v");
  EXPECT_EQ(read(set, "CFG_SET_VALUE", caller, request), "read");
  EXPECT_EQ(caller.token, "t0ken");
  EXPECT_EQ(request.value, "v");
}

TEST(Requests, WhatIsMissingOrTooMuchIsNamed) {
  Fields none, half, wrong_order, no_value, more, nul, many, negative, long_user, long_value;
  half.text(CFG_FLD_USER_NAME, "mia");
  wrong_order.header().text(CFG_FLD_VALUE, "v").text(CFG_FLD_PATH, "p");
  no_value.header().text(CFG_FLD_PATH, "p");
  more.header().text(CFG_FLD_PATH, "p").text(CFG_FLD_VALUE, "v").text(CFG_FLD_VALUE, "w");
  nul.header().text(CFG_FLD_PATH, std::string_view(with_nul, 3));
  many.header().text(CFG_FLD_PATH, "p").number(CFG_FLD_COUNT, 1001);
  negative.header().text(CFG_FLD_PATH, "p").number(CFG_FLD_COUNT, -1);
  const std::string long_text(service::MAX_TEXT + 1, 'x');
  long_user.text(CFG_FLD_USER_NAME, long_text).text(CFG_FLD_APPLICATION, "viewer");
  long_value.header().text(CFG_FLD_PATH, "p").text(CFG_FLD_VALUE, long_text);
  const struct {
    Fields& fields;
    const char* command;
    const char* expected;
  } cases[] = {
      {none, "CFG_SET_VALUE", "the user is missing"},
      {half, "CFG_SET_VALUE", "the application is missing"},
      {wrong_order, "CFG_SET_VALUE", "the path is missing"},
      {no_value, "CFG_SET_VALUE", "the value is missing"},
      {more, "CFG_SET_VALUE", "there is more than its arguments"},
      {nul, "CFG_GET_VAL", "the path holds a NUL byte"},
      {many, "CFG_GET_SUB_MERGE", "1001 rules are not between 0 and 1000"},
      {long_user, "CFG_GET_VAL", "the user is longer than 8192 bytes"},
      {long_value, "CFG_SET_VALUE", "read"},
      {negative, "CFG_GET_SUB_MERGE", "-1 rules are not between 0 and 1000"},
  };
  Caller caller;
  Request request;
  for (const auto& c : cases) EXPECT_EQ(read(c.fields, c.command, caller, request), c.expected);
}

TEST(Quotas, GoByTheOrderOfAskingAndTheLateAreRefused) {
  service::Quota turns(1);
  std::string order;
  std::map<char, service::Quota::Share> has;
  const auto asks = [&](char who, std::chrono::seconds wait) {
    turns.ask(1, Clock::now() + wait, [&, who](service::Quota::Share share) {
      order += share ? who : static_cast<char>(who - 'a' + 'A');
      has[who] = std::move(share);
    });
  };
  const std::chrono::seconds soon(-1), later(1000);
  asks('a', later);
  asks('b', soon);
  asks('c', later);
  asks('d', later);
  EXPECT_EQ(order, "a");
  turns.refuse_late(Clock::now());
  EXPECT_EQ(order, "aB");
  has['a'].give_back();
  has['c'].give_back();
  EXPECT_EQ(order, "aBcd");
  has['d'].give_back();
  asks('e', later);
  EXPECT_EQ(order, "aBcde");
}

TEST(Quotas, AmountsAreGivenOutInOrderAndMoreThanAllIsAll) {
  service::Quota bytes(10);
  service::Quota::Share some = bytes.take(6), large, small;
  EXPECT_FALSE(bytes.take(5));
  bytes.ask(1000, Clock::now(), [&](service::Quota::Share share) { large = std::move(share); });
  bytes.ask(2, Clock::now(), [&](service::Quota::Share share) { small = std::move(share); });
  EXPECT_FALSE(small) << "one that came later went past the large one";
  EXPECT_FALSE(bytes.take(1));
  some.give_back();
  EXPECT_TRUE(large && !small);
  large.give_back();
  EXPECT_TRUE(small && bytes.take(8));
}

// A share follows what it is for: others wait, and get what is left of it.
TEST(Quotas, SharesGrowAndShrink) {
  service::Quota bytes(10);
  service::Quota::Share some = bytes.take(4), others;
  bytes.ask(7, Clock::now(), [&](service::Quota::Share share) { others = std::move(share); });
  EXPECT_TRUE(some.grow(5));
  EXPECT_FALSE(some.grow(2) || some.is_all());
  EXPECT_EQ(some.amount(), 9);
  some.shrink(4);
  EXPECT_FALSE(others);
  some.shrink(3);
  EXPECT_EQ(others.amount(), 7);
}

TEST(Quotas, ATreeCountsWhileItIsRead) {
  constexpr int64_t MB = 1 << 20;
  const TemporaryFolder folder;
  service::StoreRepository store(RWCString("sqlite:" + (folder / "tree.sqlite").string()), "");
  ASSERT_TRUE(store.Connect());
  CFG_SubTree large{RWCString("large")};
  const RWCString text(std::string(1000, 'x'));
  for (int i = 0; i < 4000; ++i) large.SetValue("v" + std::to_string(i), text);
  ASSERT_TRUE(store.AddOrReplaceSubTree(&large, "halvoria"));

  service::Quota bytes(16 * MB);
  service::Quota::Share others = bytes.take(14 * MB);
  RWCString path = "halvoria\\large";
  {
    service::AnswerRoom room(bytes, {}, Clock::now());
    const service::LongRead read(store, nullptr, room);
    EXPECT_EQ(std::unique_ptr<CFG_SubTree>(store.GetSubTree(path)), nullptr);
    EXPECT_TRUE(room.is_missing());
    EXPECT_LT(room.wanted(), 5 * MB) << "it was read to its end";
    EXPECT_EQ(store.TakeFailure(), "");
    EXPECT_EQ(std::unique_ptr<CFG_SubTree>(store.GetSubTree(path)), nullptr);
  }
  others.give_back();
  service::AnswerRoom room(bytes, {}, Clock::now());
  {
    const service::LongRead read(store, nullptr, room);
    EXPECT_NE(std::unique_ptr<CFG_SubTree>(store.GetSubTree(path)), nullptr);
  }
  EXPECT_TRUE(room.settle(MB));
  EXPECT_EQ(room.release().amount(), MB);
  EXPECT_TRUE(bytes.take(16 * MB));
}

// However long the long ones take: they leave a thread to the streams, and those one to the rest.
TEST(Workers, LongJobsLeaveThreadsToTheOthers) {
  using service::Lane;
  service::Workers workers("test");
  ThreadEvent go_on(ThreadEvent::MANUAL_RESET), short_is_done(ThreadEvent::MANUAL_RESET);
  std::atomic<int> long_ones{0}, streams{0}, most_long{0};
  const auto wait_in = [&](std::atomic<int>& count) {
    most_long = std::max(most_long.load(), ++count);
    go_on.wait();
    --count;
  };
  for (int i = 0; i < 6; ++i) workers.post(Lane::LONG, [&] { wait_in(long_ones); });
  for (int i = 0; i < 6; ++i) workers.post(Lane::STREAM, [&] { ++streams, go_on.wait(); });
  workers.post(Lane::SHORT, [&] { short_is_done.signal(); });
  ASSERT_TRUE(workers.start(4));
  EXPECT_TRUE(short_is_done.wait_for(std::chrono::seconds(20)));
  go_on.signal();
  workers.stop();
  EXPECT_EQ(streams, 6);
  EXPECT_LE(most_long, 2);
}

TEST(Workers, EachDoesWhatIsForEach) {
  static std::atomic<int> done;
  service::Workers workers("test");
  ASSERT_TRUE(workers.start(3));
  workers.post(service::Lane::SHORT, [] {});
  workers.post_to_each([] { ++done; });
  workers.stop();
  EXPECT_EQ(done, 3);
  EXPECT_EQ(workers.posted(), 1u);
}

// What a job, or who is called back, holds, comes back whatever is thrown.
TEST(Quotas, ComeBackFromAJobThatFails) {
  std::atomic<int> done{0};
  ThreadEvent others_wait(ThreadEvent::MANUAL_RESET);
  service::Quota turns(1);
  service::Workers workers("test");
  ASSERT_TRUE(workers.start(1));
  turns.ask(1, Clock::now(), [&](service::Quota::Share turn) {
    workers.post(service::Lane::SHORT, [&, turn = std::move(turn)] {
      others_wait.wait();
      throw std::bad_alloc();
    });
  });
  turns.ask(1, Clock::now(), [](service::Quota::Share) { throw std::bad_alloc(); });
  turns.ask(1, Clock::now(), [&](service::Quota::Share turn) { done += static_cast<bool>(turn); });
  others_wait.signal();
  workers.stop();
  EXPECT_EQ(done, 1);
  EXPECT_TRUE(turns.take(1));
}

}  // namespace
