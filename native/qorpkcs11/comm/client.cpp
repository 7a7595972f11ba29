#include "qorpkcs11/comm/client.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "qorpkcs11/comm/access.h"
#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/common/log.h"

namespace qor::comm {
namespace {

constexpr const char* kTag = log::kCommClient;

// The flag and socket are atomic so that the unlocked checks are not data
// races; the socket is only closed under gCallMutex, so an exchange never
// finds its descriptor closed and reused (by then it may be anyone's).
std::atomic<bool> gInitialized{false};
std::atomic<int> gSocket{-1};
// Lives for the whole process instead of being re-created by every init:
// an exchange that races a re-init then still locks a valid mutex.
std::mutex gCallMutex;
// Serialises init and deinit, so a deinit shuts down only the socket it found.
std::mutex gLifecycleMutex;
timeval gReceiveTimeout{30, 0};
// Who the server must be, checked by the next init; negative: anyone.
std::atomic<int64_t> gExpectedUid{-1};
std::atomic<int64_t> gExpectedPid{-1};

// Before a byte goes out (a PIN may follow), the server must be the peer
// the app named, if it named one.
bool server_expected(int sock) {
  const int64_t uid = gExpectedUid, pid = gExpectedPid;
  if (uid < 0 && pid < 0) return true;
  Peer peer{};
  if (!peer_of(sock, &peer)) return false;
  const bool ok = (uid < 0 || static_cast<int64_t>(peer.uid) == uid) && (pid < 0 || peer.pid == pid);
  if (!ok) {
    QOR_LOGD(kTag, "Server peer rejected - uid:%u pid:%d", static_cast<unsigned>(peer.uid),
             static_cast<int>(peer.pid));
  }
  return ok;
}

void close_socket() {
  ::close(gSocket.exchange(-1));
}

int client_result(ssize_t moved, int error_code) {
  const int code = moved > 0 ? kOk : moved == 0 ? kClientPeerClosed : error_code;
  QOR_LOGD(kTag, "Exit %d", code);
  return code;
}

bool print_if_invalid(int sock, const void* buf, int32_t len, const char* function) {
  if (sock >= 0 && buf != nullptr && len >= 1) return false;
  std::printf("[%s]:%s() - Invalid arguments\n", kTag, function);
  return true;
}

int client_check_version(int sock) {
  QOR_LOGD(kTag, "Entry");
  FrameHeader hdr{kIdVersion, kTypeRequest, 0, kVersionWordLen};
  int ret = client_send_data(sock, &hdr, sizeof(hdr));
  QOR_LOGD(kTag, "Client send version returned %d", ret);
  if (ret != kOk) {
    QOR_LOGD(kTag, "Exit - success");  // kept: log readers know this line
    return ret;
  }
  int32_t word = kProtocolVersion;
  if ((ret = client_send_data(sock, &word, sizeof(word))) != kOk) return ret;

  std::memset(&hdr, 0, sizeof(hdr));
  if ((ret = client_recv_data(sock, &hdr, sizeof(hdr))) != kOk) return ret;
  if (hdr.id != kIdVersion) return kWrongVersionId;
  if (hdr.data_len != kVersionWordLen) return kWrongVersionLen;
  if (hdr.type != kTypeResponse) return kWrongVersionType;
  if (hdr.status != 0) return kWrongVersionStatus;

  word = 0;
  if ((ret = client_recv_data(sock, &word, sizeof(word))) != kOk) return ret;
  return word == kProtocolVersion ? kOk : kVersionMismatch;
}

// Discards what an abandoned exchange left behind (a reply that came after
// a timeout, or the payload behind a nonzero-status header).
void drain(int sock) {
  uint8_t scratch[256];
  ssize_t n;
  do {
    n = ::recv(sock, scratch, sizeof(scratch), MSG_DONTWAIT);
    QOR_LOGD(kTag, "Recv returned :%d", static_cast<int>(n));
  } while (n > 0);
  QOR_LOGD(kTag, "Errno:%s", std::strerror(errno));
}

// The request frame: the header and the payload's parts. With the debug
// lines on, each goes with a send of its own, as the lines have always told;
// otherwise all of it goes with one system call.
int send_request(int sock, FrameHeader* hdr, iovec* parts, int count, bool logged) {
  if (logged) {
    int ret = client_send_data(sock, hdr, sizeof(*hdr));
    if (ret != kOk) {
      QOR_LOGD(kTag, "Client send header failed %d", ret);
      return ret;
    }
    QOR_LOGD(kTag, "Entry");
    ret = client_result(send_all_parts(kTag, sock, parts, count, MSG_NOSIGNAL, nullptr), kSendError);
    if (ret != kOk) QOR_LOGD(kTag, "Client send data failed %d", ret);
    return ret;
  }
  iovec frame[1 + kMaxParts];
  frame[0] = {hdr, sizeof(*hdr)};
  std::copy(parts, parts + count, frame + 1);
  size_t moved = 0;
  const int ret = client_result(send_all_parts(kTag, sock, frame, 1 + count, MSG_NOSIGNAL, &moved),
                                kSendError);
  if (ret != kOk && moved < sizeof(*hdr)) QOR_LOGD(kTag, "Client send header failed %d", ret);
  if (ret != kOk && moved >= sizeof(*hdr)) QOR_LOGD(kTag, "Client send data failed %d", ret);
  return ret;
}

// Receives the reply frame. With the debug lines on, header and payload
// come with a receive loop each, as the lines have always told. Otherwise a
// receive takes whatever has arrived, up to a small buffer, so a small reply
// comes with its header in one system call; a large rest goes straight into
// its own buffer. Bytes past the frame (only a server gone wrong sends them)
// are dropped with the reader, as the next call's drain would drop them.
class ReplyReader {
 public:
  ReplyReader(int sock, bool readsAhead) : sock_(sock), readsAhead_(readsAhead) {}

  int read(void* dst, int32_t len) {
    if (!readsAhead_) return client_recv_data(sock_, dst, len);
    auto* to = static_cast<uint8_t*>(dst);
    auto want = static_cast<size_t>(len);
    for (;;) {
      const size_t took = ahead_.take(to, want);
      to += took;
      want -= took;
      if (want == 0) return kOk;
      // Nothing is buffered now.
      const bool direct = want >= ReadAhead::kSize;
      const ssize_t n = direct ? ::recv(sock_, to, want, 0) : ahead_.fill(sock_);
      if (n < 1) return client_result(n, kClientRecvError);
      if (direct) {
        to += n;
        want -= static_cast<size_t>(n);
      }
    }
  }

 private:
  int sock_;
  bool readsAhead_;
  ReadAhead ahead_;
};

int exchange(int sock, iovec* parts, int count, int32_t len, uint8_t** out, uint32_t* out_len) {
  FrameHeader hdr{kIdCommand, kTypeRequest, 0, len};
  const bool logged = sends_logged(kTag);
  int ret = send_request(sock, &hdr, parts, count, logged);
  if (ret != kOk) return ret;

  ReplyReader reader(sock, !logged);
  std::memset(&hdr, 0, sizeof(hdr));
  if ((ret = reader.read(&hdr, sizeof(hdr))) != kOk) {
    QOR_LOGD(kTag, "Client receive header failed %d", ret);
    return ret;
  }
  if (hdr.status != 0) {
    // Success without a reply; the payload behind it goes in the next drain.
    QOR_LOGD(kTag, "Client receive header failed %d", 0);
    return kOk;
  }
  const uint32_t reply_len = static_cast<uint32_t>(hdr.data_len);
  QOR_LOGD(kTag, "Header data_len:%d", hdr.data_len);
  QOR_LOGD(kTag, "Header id:%d, type:%d", static_cast<int>(hdr.id), static_cast<int>(hdr.type));
  if (reply_len == 0 || hdr.id != kIdCommand || hdr.type != kTypeResponse) {
    QOR_LOGD(kTag, "Client header error %d", 0);
    return kBadResponseHeader;
  }

  // A length the 32-bit loops cannot carry is as unallocatable as on the target.
  MallocPtr reply = payload_len_fits(reply_len) ? malloc_bytes(reply_len) : nullptr;
  if (!reply) {
    QOR_LOGD(kTag, "Malloc failed");
    return kAllocFailed;
  }
  if ((ret = reader.read(reply.get(), static_cast<int32_t>(reply_len))) != kOk) {
    QOR_LOGD(kTag, "Client receive data failed %d", ret);
    return ret;
  }
  *out = reply.release();
  *out_len = reply_len;
  QOR_LOGD(kTag, "Exit - Success");
  return kOk;
}

}  // namespace

int client_send_data(int sock, const void* buf, int32_t len) {
  QOR_LOGD(kTag, "Entry");
  if (print_if_invalid(sock, buf, len, "client_send_data")) return kInvalidArguments;
  // A closed peer must give an error, not a SIGPIPE in the caller's process.
  return client_result(send_all(kTag, sock, buf, len, MSG_NOSIGNAL), kSendError);
}

int client_recv_data(int sock, void* buf, int32_t len) {
  QOR_LOGD(kTag, "Entry");
  if (print_if_invalid(sock, buf, len, "client_recv_data")) return kInvalidArguments;
  return client_result(recv_all(kTag, sock, buf, len, 0), kClientRecvError);
}

void comm_set_receive_timeout_for_tests(timeval timeout) { gReceiveTimeout = timeout; }

}  // namespace qor::comm

using namespace qor::comm;

extern "C" int qorpkcs11_comm_client_init(const char* server_id) {
  QOR_LOGD(kTag, "Entry server id %s", server_id ? server_id : "(null)");
  std::lock_guard<std::mutex> lifecycle(gLifecycleMutex);
  if (gInitialized) {
    QOR_LOGD(kTag, "Already initialized");
    return kAlreadyInitialized;
  }
  if (server_id == nullptr) {
    QOR_LOGD(kTag, "Invalid arguments");
    return kInvalidArguments;
  }
  const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (sock == -1) {
    QOR_LOGD(kTag, "Socket create failed");
    return kSocketCreateFailed;
  }
  gSocket = sock;

  const sockaddr_un addr = make_address(server_id);
  if (::connect(sock, reinterpret_cast<const sockaddr*>(&addr), kAddressLength) == -1) {
    QOR_LOGD(kTag, "Socket connect failed");
    close_socket();
    return kConnectFailed;
  }
  if (!server_expected(sock)) {
    close_socket();
    return kPeerRejected;
  }
  // Not checked: without it a dead server only blocks longer.
  (void)::setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &gReceiveTimeout, sizeof(gReceiveTimeout));

  const int ret = client_check_version(sock);
  if (ret != kOk) {
    QOR_LOGD(kTag, "Client check version failed %d", ret);
    close_socket();
    return kVersionCheckFailed;
  }
  QOR_LOGD(kTag, "Exit - success");
  gInitialized = true;
  QOR_LOGD(kTag, "Exit - Init success");
  return kOk;
}

extern "C" int qorpkcs11_comm_client_execute_command(const uint8_t* data, int32_t len,
                                                     uint8_t** out, uint32_t* out_len) {
  iovec part{const_cast<uint8_t*>(data), len > 0 ? static_cast<size_t>(len) : 0};
  return qor::comm::client_execute_parts(data != nullptr ? &part : nullptr, 1, out, out_len);
}

namespace qor::comm {

int client_execute_parts(const iovec* parts, int count, uint8_t** out, uint32_t* out_len) {
  QOR_LOGD(kTag, "Entry");
  if (!gInitialized) {
    QOR_LOGD(kTag, "Not initialized");
    return kNotInitialized;
  }
  std::lock_guard<std::mutex> lock(gCallMutex);
  // A deinit may have run while this call waited for the lock.
  if (!gInitialized) {
    QOR_LOGD(kTag, "Not initialized");
    return kNotInitialized;
  }
  // The payload's length as the header states it, in 32 bits.
  int64_t len = 0;
  iovec own[kMaxParts];
  bool readable = parts != nullptr && count >= 1 && count <= kMaxParts;
  for (int i = 0; readable && i < count; ++i) {
    own[i] = parts[i];
    readable = own[i].iov_base != nullptr || own[i].iov_len == 0;
    len += static_cast<int64_t>(own[i].iov_len);
  }
  if (!readable || len < 1 || len > INT32_MAX || out == nullptr || out_len == nullptr) {
    QOR_LOGD(kTag, "Invalid arguments");
    return kInvalidArguments;
  }
  QOR_LOGD(kTag, "Entry");
  const int sock = gSocket;
  drain(sock);
  return exchange(sock, own, count, static_cast<int32_t>(len), out, out_len);
}

}  // namespace qor::comm

extern "C" int qorpkcs11_comm_client_deinit(void) {
  QOR_LOGD(kTag, "Entry");
  std::lock_guard<std::mutex> lifecycle(gLifecycleMutex);
  if (!gInitialized) {
    QOR_LOGD(kTag, "Not initialized");
    return kNotInitialized;
  }
  // Ends an exchange blocked on the socket at once instead of after the
  // receive timeout; the descriptor stays ours until it has let go.
  ::shutdown(gSocket, SHUT_RDWR);
  std::lock_guard<std::mutex> lock(gCallMutex);
  close_socket();
  gInitialized = false;
  QOR_LOGD(kTag, "Exit - Success");
  return kOk;
}

extern "C" int qorpkcs11_comm_client_expect_server_uid(int64_t uid) {
  gExpectedUid = uid < 0 ? -1 : uid;
  return kOk;
}

extern "C" int qorpkcs11_comm_client_expect_server_pid(int64_t pid) {
  gExpectedPid = pid < 0 ? -1 : pid;
  return kOk;
}
