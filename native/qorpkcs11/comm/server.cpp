#include "qorpkcs11/comm/server.h"

#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "qorpkcs11/comm/access.h"
#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/common/log.h"

namespace qor::comm {
namespace {

constexpr const char* kTag = log::kCommServer;

std::mutex gInitMutex;  // two racing inits must not start two threads
std::atomic<bool> gInitialized{false};
char gServerId[256];
pthread_t gThread;
// Set after the thread starts and read by it only when a command arrives.
std::atomic<qorpkcs11_comm_process_fn> gProcess{nullptr};
// Written by the server thread, read by any thread.
std::atomic<int32_t> gRequestStamp{0};
std::atomic<int32_t> gResponseStamp{0};

// Where the server thread got to: kNotListeningYet until it listens (0) or
// fails (its code); told to whoever waits for it.
std::mutex gListenMutex;
std::condition_variable gListenChanged;
int gListenState = kNotListeningYet;
std::atomic<DisconnectFn> gOnDisconnect{nullptr};

void set_listen_state(int state) {
  {
    std::lock_guard<std::mutex> lock(gListenMutex);
    gListenState = state;
  }
  gListenChanged.notify_all();
}

void* thread_exit(Code code) {
  set_listen_state(code);
  return reinterpret_cast<void*>(static_cast<intptr_t>(code));
}

// Without an idle limit a client may think as long as it likes between two
// calls; with one, a connection that sends nothing that long is dropped.
// Either way, once a frame begins, the frame limit (if any) runs.
int await_frame(int sock, bool buffered, Deadline* deadline) {
  const Timeouts limits = server_timeouts();
  // A frame begins with its first byte: the frame limit runs from there.
  if ((limits.idle_ms > 0 || limits.frame_ms > 0) && sock >= 0 && !buffered) {
    pollfd pfd{sock, POLLIN, 0};
    if (::poll(&pfd, 1, limits.idle_ms > 0 ? limits.idle_ms : -1) == 0) {
      QOR_LOGD(kTag, "Client idle too long - connection dropped");
      return kPeerStalled;
    }
  }
  *deadline = Deadline::in(limits.frame_ms);
  // A limit turned off again must not leave its last timeout on the socket.
  static int armed = -1;
  if (!deadline->none()) {
    armed = sock;
  } else if (armed == sock) {
    const timeval forever{0, 0};
    ::setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &forever, sizeof(forever));
    armed = -1;
  }
  return kOk;
}

// Only these mean the connection is unusable (or, for 2, that nothing can
// serve it); any other code keeps reading frames from the same client.
bool drops_connection(int code) {
  return code == kNotInitialized || code == kServerPeerClosed || code == kSendError ||
         code == kPeerStalled;
}

int process_command(const void* data, int32_t len, void** reply, uint32_t* reply_len) {
  QOR_LOGD(kTag, "Entry - cmd_data_len:%d", len);
  int ret;
  if (len < 1) {
    QOR_LOGD(kTag, "Invalid argument");
    ret = kInvalidArguments;
  } else {
    const qorpkcs11_comm_process_fn process = gProcess;
    ret = process ? process(data, len, reply, reply_len) : kNotInitialized;
  }
  QOR_LOGD(kTag, "Exit ret:%d", ret);
  return ret;
}

int process_version(const uint8_t* data, int32_t len, MallocPtr* reply, uint32_t* reply_len) {
  QOR_LOGD(kTag, "Entry");
  if (len != kVersionWordLen) {
    QOR_LOGD(kTag, "Command len invalid");
    return kBadRequestHeader;
  }
  MallocPtr answer = malloc_bytes(sizeof(int32_t));
  if (!answer) {
    QOR_LOGD(kTag, "Malloc error");
    return kAllocFailed;
  }
  int32_t client_version;
  std::memcpy(&client_version, data, sizeof(client_version));
  QOR_LOGD(kTag, "Client ver:%d Server ver:%d", client_version, kProtocolVersion);
  if (client_version != kProtocolVersion) {
    QOR_LOGD(kTag, "Client and server version mismatch");
    return kVersionMismatch;
  }
  std::memcpy(answer.get(), &kProtocolVersion, sizeof(kProtocolVersion));
  *reply = std::move(answer);
  *reply_len = sizeof(int32_t);
  return kOk;
}

// Hands a complete payload to its frame kind; on 0 *reply holds the answer.
int process_payload(uint32_t id, MallocPtr payload, int32_t len, MallocPtr* reply,
                    uint32_t* reply_len) {
  int ret;
  if (id == kIdCommand) {
    void* out = nullptr;
    ret = process_command(payload.get(), len, &out, reply_len);
    // A failing callback's pointer is not ours to free.
    if (ret == kOk) reply->reset(static_cast<uint8_t*>(out));
  } else if (id == kIdVersion) {
    ret = process_version(payload.get(), len, reply, reply_len);
  } else {
    ret = kUnknownFrameId;
  }
  payload.reset();
  if (ret != kOk) QOR_LOGD(kTag, "process command returned :%d", ret);
  return ret;
}

// One connection's receives. With the debug lines on, each frame part
// comes with a receive loop of its own, as the lines have always told.
// Otherwise a receive takes whatever has arrived, up to a small buffer, so
// a small request comes with its header in one system call; what it took
// past the frame is the next frame's start and is kept for it. A large rest
// goes straight into its own buffer, and a deadline's receives take no more
// than the frame.
class FrameReader {
 public:
  explicit FrameReader(int sock) : sock_(sock) {}

  bool buffered() const { return ahead_.buffered(); }

  int read(void* dst, int32_t len, const Deadline* deadline) {
    if (!buffered() && (sock_ < 0 || len < 1 || sends_logged(kTag)))
      return server_recv_data(sock_, dst, len, deadline);
    auto* to = static_cast<uint8_t*>(dst);
    auto want = static_cast<size_t>(len);
    for (;;) {
      const size_t took = ahead_.take(to, want);
      to += took;
      want -= took;
      if (want == 0) return kOk;
      if (want >= ReadAhead::kSize || (deadline != nullptr && !deadline->none()) || sends_logged(kTag))
        return server_recv_data(sock_, to, static_cast<int32_t>(want), deadline);
      const ssize_t n = ahead_.fill(sock_);
      if (n < 1) return n == 0 ? kServerPeerClosed : kServerRecvError;
    }
  }

 private:
  int sock_;
  ReadAhead ahead_;
};

// How sending a reply frame ended: its code, and whether the header went
// whole (a frame whose header failed ends at once, without its stamp).
struct Sent {
  int code;
  bool header;
};

// With the debug lines on, header and payload go with a send each, as the
// lines have always told; otherwise both go with one system call. A reply
// of nothing keeps its two sends: the second one's complaint about the
// length is the frame's code.
Sent send_reply(int sock, FrameHeader* hdr, uint8_t* reply, uint32_t reply_len) {
  if (sends_logged(kTag) || reply == nullptr || reply_len == 0) {
    const int ret = server_send_data(sock, hdr, sizeof(*hdr));
    if (ret != kOk) return {ret, false};
    return {server_send_data(sock, reply, static_cast<int32_t>(reply_len)), true};
  }
  iovec frame[2] = {{hdr, sizeof(*hdr)}, {reply, reply_len}};
  size_t moved = 0;
  const ssize_t sent = send_all_parts(kTag, sock, frame, 2, 0, &moved);
  return {sent > 0 ? kOk : sent < 0 ? kSendError : kServerSentNothing, moved >= sizeof(*hdr)};
}

int process_client_command(int sock, FrameReader& reader) {
  QOR_LOGD(kTag, "\n\n================");
  QOR_LOGD(kTag, "Entry");
  MallocPtr reply;
  uint32_t reply_len = 0;
  FrameHeader hdr;
  std::memset(&hdr, 0, sizeof(hdr));
  Deadline deadline;
  if (const int stalled = await_frame(sock, reader.buffered(), &deadline)) return stalled;
  int ret = reader.read(&hdr, sizeof(hdr), &deadline);
  QOR_LOGD(kTag, "Header data length field value :%d", hdr.data_len);
  QOR_LOGD(kTag, "Received command:%d", static_cast<int>(hdr.id));
  if (ret != kOk) {
    QOR_LOGD(kTag, "server_recv_data failed ret:%d", ret);
    return ret;
  }
  if (hdr.data_len == 0 || hdr.type != kTypeRequest) {
    QOR_LOGD(kTag, "Receive header failed");
    return kBadRequestHeader;
  }

  record_time_stamp(kStampRequest);
  // A negative length is as unallocatable as it is on the target.
  MallocPtr payload = payload_len_fits(hdr.data_len) ? malloc_bytes(hdr.data_len) : nullptr;
  if (!payload) {
    QOR_LOGD(kTag, "Malloc failed");
    return kAllocFailed;
  }
  if ((ret = reader.read(payload.get(), hdr.data_len, &deadline)) != kOk) {
    QOR_LOGD(kTag, "Receive command data failed");
    return ret;
  }
  ret = process_payload(hdr.id, std::move(payload), hdr.data_len, &reply, &reply_len);
  if (ret != kOk) return ret;

  hdr.type = kTypeResponse;
  hdr.status = 0;
  hdr.data_len = static_cast<int32_t>(reply_len);
  const Sent sent = send_reply(sock, &hdr, reply.get(), reply_len);
  if (!sent.header) {
    QOR_LOGD(kTag, "Send header failed %d", sent.code);
    return sent.code;
  }
  ret = sent.code;
  record_time_stamp(kStampResponse);
  reply.reset();
  QOR_LOGD(kTag, "Exit ret:%d", ret);
  return ret;
}

void serve_connection(int sock) {
  FrameReader reader(sock);
  int ret;
  do {
    ret = process_client_command(sock, reader);
    QOR_LOGD(kTag, "process_client_command ret :%d", ret);
  } while (!drops_connection(ret));
}

void* server_thread_func(void* arg) {
  const char* server_id = static_cast<const char*>(arg);
  QOR_LOGD(kTag, "Entry %s", server_id);
  // Sends here carry no MSG_NOSIGNAL; a client that hangs up before its
  // reply must cost an EPIPE on this thread, not the whole process.
  sigset_t pipe_only;
  sigemptyset(&pipe_only);
  sigaddset(&pipe_only, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_only, nullptr);

  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (listener == -1) {
    QOR_LOGD(kTag, "socket creation failed");
    return thread_exit(kSocketCreateFailed);
  }
  const sockaddr_un addr = make_address(server_id);
  const int reuse = 1;
  if (::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse)) == -1)
    QOR_LOGD(kTag, "SetSockOpt of SO_REUSEADDR returned error %d", -1);
  if (::bind(listener, reinterpret_cast<const sockaddr*>(&addr), kAddressLength) == -1) {
    QOR_LOGD(kTag, "socket bind failed");
    return thread_exit(kBindFailed);
  }
  if (::listen(listener, 1) == -1) {
    QOR_LOGD(kTag, "socket listen failed");
    return thread_exit(kListenFailed);
  }
  set_listen_state(kOk);
  QOR_LOGD(kTag, "Wait for new client %s", server_id);
  for (;;) {
    // A failed accept goes on with -1: every read on it fails with 5, which
    // keeps the frame loop spinning (long-standing behaviour).
    const int sock = ::accept(listener, nullptr, nullptr);
    if (sock == -1) QOR_LOGD(kTag, "socket accept failed");
    if (sock != -1 && peers_restricted()) {
      Peer peer{-1, static_cast<uid_t>(-1)};
      const bool known = peer_of(sock, &peer);
      if (!peer_allowed(peer, known)) {
        QOR_LOGD(kTag, "Peer refused - uid:%u pid:%d", static_cast<unsigned>(peer.uid),
                 static_cast<int>(peer.pid));
        ::close(sock);
        continue;
      }
    }
    QOR_LOGD(kTag, "Client connected - socket id:%d", sock);
    serve_connection(sock);
    if (const DisconnectFn ended = gOnDisconnect) ended();
    QOR_LOGD(kTag, "Socket error. Wait for new client");
    ::close(sock);
    QOR_LOGD(kTag, "Wait for new client %s", server_id);
  }
}

}  // namespace

int server_recv_data(int sock, void* buf, int32_t len, const Deadline* deadline) {
  QOR_LOGD(kTag, "Entry - Recv buf len:%d", len);
  if (sock < 0 || buf == nullptr || len < 1) {
    std::printf("[%s]:%s() - Invalid argument\n", kTag, "server_recv_data");
    return kInvalidArguments;
  }
  const bool timed = deadline != nullptr && !deadline->none();
  const ssize_t moved = timed ? recv_all_until(kTag, sock, buf, len, *deadline) : recv_all(kTag, sock, buf, len, 0);
  if (moved < 0 && timed && (errno == EAGAIN || errno == EWOULDBLOCK)) {
    QOR_LOGD(kTag, "Client stalled mid-frame - connection dropped");
    return kPeerStalled;
  }
  if (moved < 0) return kServerRecvError;
  const int code = moved == 0 ? kServerPeerClosed : kOk;
  QOR_LOGD(kTag, "Exit ret:%d", code);
  return code;
}

int server_send_data(int sock, const void* buf, int32_t len) {
  QOR_LOGD(kTag, "Entry - send data len:%d", len);
  if (sock < 0 || buf == nullptr || len < 1) {
    QOR_LOGD(kTag, "Invalid argument");
    return kInvalidArguments;
  }
  const ssize_t moved = send_all(kTag, sock, buf, len, 0);
  const int code = moved > 0 ? kOk : moved < 0 ? kSendError : kServerSentNothing;
  QOR_LOGD(kTag, "Exit ret:%d", code);
  return code;
}

void server_on_disconnect(DisconnectFn fn) { gOnDisconnect = fn; }

void record_time_stamp(int kind) {
  timeval now;
  gettimeofday(&now, nullptr);
  // Seconds plus the milliseconds within that second (not a millisecond
  // count): consumers compare stamps in this unit. Wraps past 2038.
  const auto stamp = static_cast<int32_t>(static_cast<uint32_t>(now.tv_sec) +
                                          static_cast<uint32_t>(now.tv_usec / 1000));
  // The texts carry a bare "%l" that log readers match verbatim, so they go
  // out as data rather than as formats.
  if (kind == kStampResponse) {
    gResponseStamp = stamp;
    QOR_LOGD(kTag, "%s", "Last used Time Response: %l\n");
  } else {
    gRequestStamp = stamp;
    QOR_LOGD(kTag, "%s", "Last used Time Request: %l\n");
  }
}

}  // namespace qor::comm

using namespace qor::comm;

extern "C" int qorpkcs11_comm_server_init(const char* server_id,
                                          qorpkcs11_comm_process_fn process) {
  QOR_LOGD(kTag, "Entry - server id %s", server_id ? server_id : "(null)");
  if (server_id == nullptr || process == nullptr) {
    QOR_LOGD(kTag, "Invalid arguments");
    return kInvalidArguments;
  }
  std::lock_guard<std::mutex> lock(gInitMutex);
  if (gInitialized) {
    QOR_LOGD(kTag, "Already initialized");
    return kAlreadyInitialized;
  }
  std::strncpy(gServerId, server_id, sizeof(gServerId) - 1);
  gServerId[sizeof(gServerId) - 1] = '\0';
  // The callback is in place before the thread can accept: a client may
  // connect and send its first command before this function returns, and a
  // command that found no callback would cost it its connection.
  gProcess = process;
  const int err = pthread_create(&gThread, nullptr, server_thread_func, gServerId);
  if (err != 0) {
    gProcess = nullptr;
    QOR_LOGD(kTag, "Thread create failed %d", err);
    return kThreadCreateFailed;
  }
  pthread_detach(gThread);  // never joined; frees itself if it ends early
  gInitialized = true;
  QOR_LOGD(kTag, "Exit - success");
  return kOk;
}

extern "C" int qorpkcs11_comm_server_wait_listening(int32_t timeout_ms) {
  if (!gInitialized) return kNotInitialized;
  std::unique_lock<std::mutex> lock(gListenMutex);
  gListenChanged.wait_for(lock, std::chrono::milliseconds(timeout_ms > 0 ? timeout_ms : 0),
                          [] { return gListenState != kNotListeningYet; });
  return gListenState;
}

extern "C" int qorpkcs11_comm_server_deinit(void) {
  QOR_LOGD(kTag, "qorpkcs11_comm_server_deinit Entry");
  if (!gInitialized) {
    QOR_LOGD(kTag, "Not initialized");
    return kNotInitialized;
  }
  QOR_LOGD(kTag, "Exit");
  return kOk;
}

extern "C" int32_t qorpkcs11_comm_server_getLastUsageTime(void) {
  const int32_t request = gRequestStamp;
  const int32_t response = gResponseStamp;
  return request > response ? -1 : response;
}
