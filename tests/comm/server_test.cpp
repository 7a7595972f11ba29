// The transport server against scripted raw clients. Each test starts the
// server thread once; ctest runs every test in a process of its own.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "log_capture.h"
#include "peer.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

constexpr const char* kTag = log::kCommServer;

// What the processing callback does with one payload; 0 sends `reply`.
using Handler = std::function<int(const Bytes& request, Bytes* reply)>;
Handler gHandler;
std::mutex gSeenMutex;
std::vector<Bytes> gSeen;

int process(const void* data, int32_t len, void** out, uint32_t* out_len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  Bytes request(bytes, bytes + len);
  {
    std::lock_guard<std::mutex> lock(gSeenMutex);
    gSeen.push_back(request);
  }
  Bytes reply;
  const int rc = gHandler(request, &reply);
  if (rc != 0) return rc;
  *out = std::malloc(reply.size());
  if (!reply.empty()) std::memcpy(*out, reply.data(), reply.size());
  *out_len = static_cast<uint32_t>(reply.size());
  return 0;
}

Bytes echoed(const Bytes& request) { return text("re:") + request; }

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gHandler = [](const Bytes& request, Bytes* reply) {
      *reply = echoed(request);
      return 0;
    };
    ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), process));
  }

  std::vector<Bytes> seen() {
    std::lock_guard<std::mutex> lock(gSeenMutex);
    return gSeen;
  }

  bool logged(const std::string& message) { return logs_.contains(kTag, message); }

  // The frame loop ended one frame with `code`.
  bool ended_with(int code) { return logged("process_client_command ret :" + std::to_string(code)); }

  LogCapture logs_;
  std::string id_ = unique_server_id();
};

void expect_served(const Fd& conn, const std::string& payload) {
  write_all(conn, command(text(payload)));
  EXPECT_EQ(response(echoed(text(payload))), read_up_to(conn, 16 + 3 + payload.size()));
}

TEST_F(ServerTest, AnswersTheVersionExchangeByteForByte) {
  Fd conn = connect_raw(id_);
  write_all(conn, version_request());
  EXPECT_EQ(version_response(), read_up_to(conn, 20));
  EXPECT_TRUE(logged("Client ver:1 Server ver:1"));
  EXPECT_TRUE(seen().empty());  // the callback never sees version frames
}

TEST_F(ServerTest, HandsEachPayloadToTheCallbackAndFramesItsReply) {
  Fd conn = connect_raw(id_);
  write_all(conn, version_request());
  EXPECT_EQ(version_response(), read_up_to(conn, 20));
  expect_served(conn, "first");
  expect_served(conn, std::string(100000, 'p'));  // more than one socket buffer
  expect_served(conn, "x");
  EXPECT_EQ((std::vector<Bytes>{text("first"), Bytes(100000, 'p'), text("x")}), seen());
  EXPECT_TRUE(logged("Wait for new client " + id_));
}

struct DroppedFrameCase {
  const char* name;
  Bytes frame;
  int code;
  const char* log;
};
void PrintTo(const DroppedFrameCase& c, std::ostream* os) { *os << c.name; }

class ServerDroppedFrameTest : public ServerTest,
                               public ::testing::WithParamInterface<DroppedFrameCase> {};

// The next exchange on the same connection comes back first and intact, so
// the bad frame got no answer and its payload (if any was read) is gone.
TEST_P(ServerDroppedFrameTest, GetsNoAnswerAndTheConnectionKeepsServing) {
  const DroppedFrameCase& c = GetParam();
  Fd conn = connect_raw(id_);
  write_all(conn, c.frame);
  expect_served(conn, "next");
  EXPECT_TRUE(ended_with(c.code));
  EXPECT_TRUE(logged(c.log));
  EXPECT_FALSE(logged("Socket error. Wait for new client"));
  EXPECT_EQ(std::vector<Bytes>{text("next")}, seen());
}

INSTANTIATE_TEST_SUITE_P(
    Frames, ServerDroppedFrameTest,
    ::testing::Values(
        DroppedFrameCase{"ZeroLength", header(101, 103, 0, 0), 18, "Receive header failed"},
        DroppedFrameCase{"ResponseType", header(101, 104, 0, 5), 18, "Receive header failed"},
        DroppedFrameCase{"NoType", header(100, 0, 0, 4), 18, "Receive header failed"},
        DroppedFrameCase{"VersionTooLong", header(100, 103, 0, 8) + word(1) + word(1), 18,
                         "Command len invalid"},
        DroppedFrameCase{"VersionTooShort", header(100, 103, 0, 2) + Bytes{1, 0}, 18,
                         "Command len invalid"},
        DroppedFrameCase{"VersionMismatch", header(100, 103, 0, 4) + word(2), 4,
                         "Client and server version mismatch"},
        DroppedFrameCase{"UnknownId", header(7, 103, 0, 5) + text("abcde"), 19,
                         "process command returned :19"},
        DroppedFrameCase{"NegativeLength", header(101, 103, 0, -5), 21, "Malloc failed"},
        DroppedFrameCase{"MinimumLength", header(101, 103, 0, INT32_MIN), 21, "Malloc failed"}),
    [](const auto& info) { return std::string(info.param.name); });

struct CallbackCodeCase {
  int code;
  bool drops;
};
void PrintTo(const CallbackCodeCase& c, std::ostream* os) { *os << c.code; }

class ServerCallbackCodeTest : public ServerTest,
                               public ::testing::WithParamInterface<CallbackCodeCase> {};

TEST_P(ServerCallbackCodeTest, SendsNothingAndDropsTheConnectionOnlyOn2_10_11) {
  const CallbackCodeCase& c = GetParam();
  gHandler = [&c](const Bytes& request, Bytes* reply) {
    if (request == text("fail")) return c.code;
    *reply = echoed(request);
    return 0;
  };
  Fd conn = connect_raw(id_);
  write_all(conn, command(text("fail")));
  if (c.drops) {
    EXPECT_TRUE(closed_by_peer(conn));
    EXPECT_TRUE(logged("Socket error. Wait for new client"));
    conn = connect_raw(id_);
  }
  expect_served(conn, "after");
  EXPECT_TRUE(logged("process command returned :" + std::to_string(c.code)));
}

INSTANTIATE_TEST_SUITE_P(Codes, ServerCallbackCodeTest,
                         ::testing::Values(CallbackCodeCase{1, false}, CallbackCodeCase{3, false},
                                           CallbackCodeCase{5, false}, CallbackCodeCase{9, false},
                                           CallbackCodeCase{12, false}, CallbackCodeCase{-1, false},
                                           CallbackCodeCase{2, true}, CallbackCodeCase{10, true},
                                           CallbackCodeCase{11, true}),
                         [](const auto& info) {
                           return "Code" + std::to_string(info.param.code < 0 ? 999 : info.param.code);
                         });

TEST_F(ServerTest, ZeroLengthReplySendsAnEmptyHeaderAndKeepsTheConnection) {
  gHandler = [](const Bytes& request, Bytes* reply) {
    if (request != text("empty")) *reply = echoed(request);
    return 0;
  };
  Fd conn = connect_raw(id_);
  write_all(conn, command(text("empty")));
  EXPECT_EQ(header(101, 104, 0, 0), read_up_to(conn, 16));
  expect_served(conn, "after");
  EXPECT_TRUE(logged("Invalid argument"));
  EXPECT_TRUE(ended_with(5));
}

struct HangUpCase {
  const char* name;
  Bytes sent;
};
void PrintTo(const HangUpCase& c, std::ostream* os) { *os << c.name; }

class ServerHangUpTest : public ServerTest, public ::testing::WithParamInterface<HangUpCase> {};

TEST_P(ServerHangUpTest, PeerClosingMidFrameIsDroppedAndTheNextClientServed) {
  {
    Fd conn = connect_raw(id_);
    write_all(conn, GetParam().sent);
  }
  Fd next = connect_raw(id_);
  expect_served(next, "next client");
  EXPECT_TRUE(ended_with(10));
  EXPECT_TRUE(logged("Socket error. Wait for new client"));
}

INSTANTIATE_TEST_SUITE_P(Cuts, ServerHangUpTest,
                         ::testing::Values(HangUpCase{"Silent", {}}, HangUpCase{"InHeader", Bytes(9, 0x65)},
                                           HangUpCase{"AfterHeader", header(101, 103, 0, 8)},
                                           HangUpCase{"InPayload", header(101, 103, 0, 8) + text("half")},
                                           HangUpCase{"LargestLength", header(101, 103, 0, INT32_MAX)}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ServerTest, ClientLeavingBeforeItsReplyIsDroppedWithoutKillingTheProcess) {
  std::promise<void> client_gone;
  std::shared_future<void> gone = client_gone.get_future().share();
  gHandler = [gone](const Bytes& request, Bytes* reply) {
    if (request == text("wait")) gone.wait();
    *reply = echoed(request);
    return 0;
  };
  {
    Fd conn = connect_raw(id_);
    write_all(conn, command(text("wait")));
    while (seen().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  client_gone.set_value();
  Fd next = connect_raw(id_);
  expect_served(next, "still alive");
  EXPECT_TRUE(logged("Send header failed 11"));
}

TEST_F(ServerTest, SecondClientWaitsInTheBacklogUntilTheFirstLeaves) {
  Fd first = connect_raw(id_);
  expect_served(first, "first");
  Fd second = connect_raw(id_);
  write_all(second, command(text("second")));
  EXPECT_TRUE(silent_for(second, 200));
  expect_served(first, "first again");
  first.reset();
  EXPECT_EQ(response(echoed(text("second"))), read_up_to(second, 16 + 9));
  EXPECT_EQ((std::vector<Bytes>{text("first"), text("first again"), text("second")}), seen());
}

TEST_F(ServerTest, InitAgainReturns1EvenAfterDeinit) {
  EXPECT_EQ(1, qorpkcs11_comm_server_init(id_.c_str(), process));
  EXPECT_TRUE(logged("Already initialized"));
  EXPECT_EQ(0, qorpkcs11_comm_server_deinit());
  EXPECT_EQ(1, qorpkcs11_comm_server_init((id_ + ".other").c_str(), process));
  EXPECT_EQ(0, qorpkcs11_comm_server_deinit());
  // Deinit only reports: the thread goes on serving.
  Fd conn = connect_raw(id_);
  expect_served(conn, "served after deinit");
}

TEST(ServerInitTest, NullArgumentsReturn5AndDeinitBeforeInitReturns2) {
  LogCapture logs;
  EXPECT_EQ(2, qorpkcs11_comm_server_deinit());
  EXPECT_TRUE(logs.contains(kTag, "Not initialized"));
  EXPECT_EQ(5, qorpkcs11_comm_server_init("@id", nullptr));
  EXPECT_EQ(5, qorpkcs11_comm_server_init(nullptr, process));
  EXPECT_TRUE(logs.contains(kTag, "Invalid arguments"));
  EXPECT_EQ(2, qorpkcs11_comm_server_deinit());
  EXPECT_EQ(0, qorpkcs11_comm_server_getLastUsageTime());
}

int32_t stamp_of(const timeval& t) {
  return static_cast<int32_t>(t.tv_sec) + static_cast<int32_t>(t.tv_usec / 1000);
}

TEST_F(ServerTest, UsageTimeIsZeroThenMinusOneWhileProcessingThenTheResponseTime) {
  EXPECT_EQ(0, qorpkcs11_comm_server_getLastUsageTime());
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> entered{false};
  gHandler = [&](const Bytes& request, Bytes* reply) {
    entered = true;
    released.wait();
    *reply = echoed(request);
    return 0;
  };
  Fd conn = connect_raw(id_);
  // Stamps are seconds plus milliseconds-in-second, which only grow within
  // one second: start early in one so the whole exchange stays inside it.
  timeval before;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    gettimeofday(&before, nullptr);
  } while (before.tv_usec > 300000);

  write_all(conn, command(text("slow")));
  while (!entered) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(-1, qorpkcs11_comm_server_getLastUsageTime());
  release.set_value();
  EXPECT_EQ(response(echoed(text("slow"))), read_up_to(conn, 16 + 7));

  int32_t usage = -1;
  for (int i = 0; i < 5000 && usage == -1; ++i) {
    usage = qorpkcs11_comm_server_getLastUsageTime();
    if (usage == -1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  timeval after;
  gettimeofday(&after, nullptr);
  ASSERT_EQ(before.tv_sec, after.tv_sec) << "exchange took too long to check the stamp";
  EXPECT_LE(stamp_of(before), usage);
  EXPECT_GE(stamp_of(after), usage);
  EXPECT_TRUE(logged("Last used Time Request: %l\n"));
  EXPECT_TRUE(logged("Last used Time Response: %l\n"));
}

class ServerLoopArgsTest : public ::testing::TestWithParam<BadLoopArgs> {};

TEST_P(ServerLoopArgsTest, Return5ReceivePrintsToStandardOutputSendLogs) {
  const BadLoopArgs& c = GetParam();
  LogCapture logs;
  uint8_t buf[4] = {};
  void* p = c.null_buf ? nullptr : buf;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(5, comm::server_recv_data(c.sock, p, c.len));
  EXPECT_EQ(5, comm::server_send_data(c.sock, p, c.len));
  EXPECT_EQ("[QORPKCS11-COMM_SERVER]:server_recv_data() - Invalid argument\n",
            ::testing::internal::GetCapturedStdout());
  EXPECT_TRUE(logs.contains(kTag, "Invalid argument"));
}

INSTANTIATE_TEST_SUITE_P(Args, ServerLoopArgsTest,
                         ::testing::ValuesIn(kBadLoopArgs),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qor::test
