// Header and payload leave in one system call when the debug lines are not
// written, and with a send each when they are; either way the bytes on the
// wire are the same, also for payloads larger than the socket takes at once
// (where a send stops inside a part and goes on from there).
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

#include "log_capture.h"
#include "peer.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

struct Mode {
  const char* name;
  bool linesOn;
};
void PrintTo(const Mode& m, std::ostream* os) { *os << m.name; }

class OneSendTest : public ::testing::TestWithParam<Mode> {
 protected:
  void SetUp() override {
    if (!GetParam().linesOn) __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  }
  bool logged(const char* tag, const std::string& line) { return logs_.contains(tag, line); }
  LogCapture logs_;  // lines on: every priority is written
};

Bytes pattern(size_t n, uint8_t seed) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 7 + seed);
  return b;
}

TEST_P(OneSendTest, ClientSendsItsPartsAsOneFrame) {
  const std::string id = unique_server_id();
  Fd listener = listen_raw(id);
  // Three parts as the client's request goes out with a large input:
  // the bytes before it, the caller's input, the bytes after.
  const Bytes before = pattern(9, 1), input = pattern(size_t{1} << 20, 2), after = pattern(5, 3);
  const Bytes payload = before + input + after;
  std::thread peer([&] {
    Fd conn = accept_raw(listener);
    ASSERT_TRUE(answer_handshake(conn));
    EXPECT_EQ(command(payload), read_up_to(conn, 16 + payload.size()));
    write_all(conn, response(text("reply")));
  });
  ASSERT_EQ(0, qorpkcs11_comm_client_init(id.c_str()));
  const iovec parts[3] = {{const_cast<uint8_t*>(before.data()), before.size()},
                          {const_cast<uint8_t*>(input.data()), input.size()},
                          {const_cast<uint8_t*>(after.data()), after.size()}};
  uint8_t* out = nullptr;
  uint32_t outLen = 0;
  EXPECT_EQ(0, comm::client_execute_parts(parts, 3, &out, &outLen));
  peer.join();
  EXPECT_EQ(text("reply"), Bytes(out, out + outLen));
  std::free(out);
  // The header's own send, and its line, only with the lines on.
  EXPECT_EQ(GetParam().linesOn, logged(log::kCommClient, "Bytes written:16"));
  qorpkcs11_comm_client_deinit();
}

// Replies around the size of what one receive takes ahead, bytes a server
// gone wrong sends past its frame, and a nonzero status with a payload
// behind it: every reply arrives whole, and what lies past it is dropped.
TEST_P(OneSendTest, ClientReadsRepliesOfEverySizeAndDropsWhatFollowsThem) {
  const std::string id = unique_server_id();
  Fd listener = listen_raw(id);
  const std::vector<size_t> sizes = {1, 4080, 4081, 100000};
  std::thread peer([&] {
    Fd conn = accept_raw(listener);
    ASSERT_TRUE(answer_handshake(conn));
    for (const size_t size : sizes) {
      read_up_to(conn, 16 + 1);
      write_all(conn, response(pattern(size, static_cast<uint8_t>(size))));
    }
    read_up_to(conn, 16 + 1);
    write_all(conn, response(text("first")) + text("trailing bytes"));
    read_up_to(conn, 16 + 1);
    write_all(conn, header(101, 104, 1, 5) + text("stale"));
    read_up_to(conn, 16 + 1);
    write_all(conn, response(text("last")));
  });
  ASSERT_EQ(0, qorpkcs11_comm_client_init(id.c_str()));
  for (const size_t size : sizes) {
    Exchange ex = execute(text("?"));
    EXPECT_EQ(0, ex.rc);
    EXPECT_TRUE(pattern(size, static_cast<uint8_t>(size)) == ex.reply) << size << " bytes";
  }
  EXPECT_EQ(text("first"), execute(text("?")).reply);
  Exchange none = execute(text("?"));
  EXPECT_EQ(0, none.rc);
  EXPECT_TRUE(none.reply.empty()) << "a nonzero status has no reply";
  EXPECT_EQ(text("last"), execute(text("?")).reply);
  peer.join();
  qorpkcs11_comm_client_deinit();
}

Bytes gReply;
int echo(const void*, int32_t, void** out, uint32_t* outLen) {
  *out = std::malloc(gReply.size());
  std::memcpy(*out, gReply.data(), gReply.size());
  *outLen = static_cast<uint32_t>(gReply.size());
  return 0;
}

TEST_P(OneSendTest, ServerSendsItsReplyAsOneFrame) {
  const std::string id = unique_server_id();
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id.c_str(), echo));
  Fd conn = connect_raw(id);
  for (const size_t size : {size_t{1}, size_t{100}, size_t{3} << 20}) {
    gReply = pattern(size, static_cast<uint8_t>(size));
    write_all(conn, command(text("request")));
    EXPECT_EQ(response(gReply), read_up_to(conn, 16 + size)) << size << " bytes";
  }
  EXPECT_EQ(GetParam().linesOn, logged(log::kCommServer, "Entry - send data len:16"));
}

// A send the socket takes only in part (a slow reader, a send timeout) goes
// on inside the part where it stopped, past empty parts, and nothing is
// sent twice or skipped.
TEST(SendAllPartsTest, GoesOnWhereAPartialSendStopped) {
  int pair[2];
  ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
  Fd sender(pair[0]), reader(pair[1]);
  const int small = 4096;
  ::setsockopt(sender.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  const timeval wait{0, 500000};
  ::setsockopt(sender.get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);

  const Bytes a = pattern(3, 1), b = pattern(size_t{1} << 20, 2), c = pattern(70001, 3);
  const Bytes whole = a + b + c;
  Bytes got;
  LogCapture logs;
  std::thread slow([&] {
    uint8_t chunk[2048];
    while (got.size() < whole.size()) {
      const ssize_t n = ::recv(reader.get(), chunk, sizeof chunk, 0);
      if (n <= 0) break;
      // Once, inside the large part, stop reading until the sender's first
      // send has returned what went (its wait times out): waiting on that,
      // not on a clock, holds on a slow or busy machine too.
      if (got.size() < 200000 && got.size() + n >= 200000) {
        for (int i = 0; i < 1000 && logs.messages("test").empty(); ++i) ::usleep(10000);
      }
      got.insert(got.end(), chunk, chunk + n);
    }
  });
  iovec parts[4] = {{const_cast<uint8_t*>(a.data()), a.size()},
                    {nullptr, 0},
                    {const_cast<uint8_t*>(b.data()), b.size()},
                    {const_cast<uint8_t*>(c.data()), c.size()}};
  size_t moved = 0;
  EXPECT_EQ(1, comm::send_all_parts("test", sender.get(), parts, 4, MSG_NOSIGNAL, &moved));
  sender.reset();  // a failed send leaves the reader at the end, not waiting
  slow.join();
  EXPECT_EQ(whole.size(), moved);
  EXPECT_TRUE(whole == got) << "the bytes differ";
  EXPECT_GT(logs.messages("test").size(), 1u) << "every part went in one send: nothing was tried";
}

// A receive may take the next frame's start with the one it reads: it is
// kept for that frame. Frames sent together, one large, and a frame sent a
// byte at a time are each answered, in order.
TEST_P(OneSendTest, ServerServesFramesThatArriveTogetherOrInPieces) {
  const std::string id = unique_server_id();
  gReply = text("ok");
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id.c_str(), echo));
  Fd conn = connect_raw(id);
  const Bytes large = pattern(10000, 9);
  write_all(conn, command(text("a")) + command(large) + command(text("b")) + version_request());
  const Bytes ok = response(text("ok"));
  EXPECT_EQ(ok + ok + ok + version_response(), read_up_to(conn, 3 * ok.size() + 20));
  for (const uint8_t byte : command(text("slow"))) {
    write_all(conn, Bytes{byte});
    ::usleep(200);
  }
  EXPECT_EQ(ok, read_up_to(conn, ok.size()));
}

INSTANTIATE_TEST_SUITE_P(Lines, OneSendTest,
                         ::testing::Values(Mode{"DebugLinesOn", true}, Mode{"DebugLinesOff", false}),
                         [](const ::testing::TestParamInfo<Mode>& info) { return info.param.name; });

}  // namespace
}  // namespace qor::test
