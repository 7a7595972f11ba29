// What travels on the command socket, shared by both transport ends: the
// socket address, the frame header, the frame kinds and the return codes.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace qor::comm {

// Four 32-bit fields in host order; both ends run on the same device.
struct FrameHeader {
  uint32_t id;
  uint32_t type;
  int32_t status;
  int32_t data_len;
};
static_assert(sizeof(FrameHeader) == 16, "the header is 16 bytes on the wire");

inline constexpr uint32_t kIdVersion = 100;
inline constexpr uint32_t kIdCommand = 101;
inline constexpr uint32_t kTypeRequest = 103;
inline constexpr uint32_t kTypeResponse = 104;
inline constexpr int32_t kProtocolVersion = 1;
inline constexpr int32_t kVersionWordLen = sizeof(int32_t);

// Transport return codes. 10 and 12 mean different things on each end:
// each end keeps its own convention for an error and for a closed peer.
enum Code : int {
  kOk = 0,
  kAlreadyInitialized = 1,
  kNotInitialized = 2,
  kVersionCheckFailed = 3,
  kVersionMismatch = 4,
  kInvalidArguments = 5,
  kSocketCreateFailed = 6,
  kConnectFailed = 7,
  kBindFailed = 8,
  kClientRecvError = 10,
  kServerPeerClosed = 10,
  kSendError = 11,
  kServerRecvError = 12,
  kServerSentNothing = 12,
  kClientPeerClosed = 13,
  kThreadCreateFailed = 14,
  kWrongVersionId = 15,
  kWrongVersionType = 16,
  kWrongVersionLen = 17,
  kBadRequestHeader = 18,
  kUnknownFrameId = 19,
  kWrongVersionStatus = 20,
  kAllocFailed = 21,
  kListenFailed = 22,
  kBadResponseHeader = 23,
  // Only with the access measures on (access.h):
  kPeerRejected = 24,    // client: the server is not the peer expected
  kPeerStalled = 25,     // server: a frame or an idle connection ran out of time
  kNotListeningYet = 26, // server: the thread is not listening within the wait
};

// The whole structure is always passed, so the trailing zero bytes of the
// path are part of the abstract name; a shorter length names another socket.
inline constexpr socklen_t kAddressLength = sizeof(sockaddr_un);
static_assert(kAddressLength == 110, "peers bind and connect with length 110");

// Abstract address named by the id less its first character (which peers
// discard by convention, so any character will do there).
sockaddr_un make_address(const char* server_id);

// Full-length socket loops. Each call is logged as "Bytes read:%d" or
// "Bytes written:%d"; the result is 1 once every byte has moved, otherwise
// the result of the call that fell short (0 when the peer closed, negative
// on error), so each end maps it to its own codes.
ssize_t send_all(const char* tag, int sock, const void* buf, int32_t len, int flags);
ssize_t recv_all(const char* tag, int sock, void* buf, int32_t len, int flags);
// As send_all over several buffers in turn, with one sendmsg per step: a
// header and its payload leave in one system call. `parts` is advanced past
// what went. Returns 1 when all went, else the short call's result, and
// stores the bytes that went through `moved` unless it is null (a caller
// tells a failed header from a failed payload by it).
ssize_t send_all_parts(const char* tag, int sock, iovec* parts, int count, int flags, size_t* moved);
// Whether the transport's debug lines are being written: then header and
// payload go out with a send each, so the lines are what they always were.
bool sends_logged(const char* tag);
// As recv_all, each receive bounded by the time the deadline leaves (-1 with
// EAGAIN once it has passed).
class Deadline;
ssize_t recv_all_until(const char* tag, int sock, void* buf, int32_t len, const Deadline& deadline);

// Bytes received ahead of what a reader asked for, so that a small frame
// comes with its header in one system call. Each end's reader decides when
// to read ahead and what a failed receive means.
class ReadAhead {
 public:
  static constexpr size_t kSize = 4096;
  bool buffered() const { return at_ < have_; }
  // Moves up to `want` buffered bytes to `to`; returns how many.
  size_t take(uint8_t* to, size_t want);
  // One receive into the buffer, which must be empty; recv's result.
  ssize_t fill(int sock);

 private:
  size_t at_ = 0, have_ = 0;
  uint8_t bytes_[kSize];
};

// Buffers that cross the transport boundary come from malloc and go back
// with free, on whichever side ends up owning them.
struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
using MallocPtr = std::unique_ptr<uint8_t, FreeDeleter>;

inline MallocPtr malloc_bytes(size_t n) { return MallocPtr(static_cast<uint8_t*>(std::malloc(n))); }

// Whether a length taken from the wire can be allocated and moved by the
// 32-bit length loops above.
inline bool payload_len_fits(int64_t len) { return len > 0 && len <= INT32_MAX; }

}  // namespace qor::comm
