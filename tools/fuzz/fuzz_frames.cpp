// The transport server's frame loop as a hostile peer sees it: the input is
// everything one client connection sends (handshakes, commands, garbage),
// written to the real server thread over its abstract socket. The server
// must never crash or hang, and whatever it sends back must be whole,
// well-formed response frames.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_common.h"
#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/comm/server.h"

// Allocations above 256 MiB fail, as such allocations can in the 32-bit
// processes this runs in on devices: a length from the wire then takes the
// failure path instead of slowing the search down.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=256:alloc_dealloc_mismatch=0";
}

namespace {

using namespace qor::comm;

// The processing callback's answer is chosen by the payload's first byte,
// so the fuzzer reaches every way a callback can end a frame.
int answer(const void* data, int32_t len, void** out, uint32_t* out_len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  switch (bytes[0]) {
    case 'f': return 1;   // no reply, connection kept
    case 'd': return 2;   // no reply, connection dropped
    case 'c': return 10;
    case 's': return 11;
    case 'e':             // zero-length reply
      *out = std::malloc(1);
      *out_len = 0;
      return 0;
    default:              // echo
      *out = std::malloc(static_cast<size_t>(len));
      std::memcpy(*out, data, static_cast<size_t>(len));
      *out_len = static_cast<uint32_t>(len);
      return 0;
  }
}

std::string gServerId;

// Writes the input and reads the answers at the same time (the server
// blocks on a full socket as much as we would), then reads until the server
// drops the connection, which it does at the latest when it sees our end
// of input.
std::vector<uint8_t> converse(const uint8_t* data, size_t size) {
  const int fd = qor::fuzz::connect_to(gServerId);
  std::vector<uint8_t> got;
  size_t sent = 0;
  bool writing = true;
  if (size == 0) {
    ::shutdown(fd, SHUT_WR);
    writing = false;
  }
  for (;;) {
    pollfd p{fd, static_cast<short>(POLLIN | (writing ? POLLOUT : 0)), 0};
    if (::poll(&p, 1, -1) < 0) {
      if (errno == EINTR) continue;
      std::abort();
    }
    if (writing && (p.revents & (POLLOUT | POLLERR | POLLHUP))) {
      const ssize_t n = ::send(fd, data + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n > 0) sent += static_cast<size_t>(n);
      if (n < 0 && errno != EAGAIN) writing = false;  // the server dropped us early
      if (sent == size) writing = false;
      if (!writing) ::shutdown(fd, SHUT_WR);
    }
    if (p.revents & (POLLIN | POLLHUP | POLLERR)) {
      uint8_t buf[4096];
      const ssize_t n = ::recv(fd, buf, sizeof(buf), MSG_DONTWAIT);
      if (n > 0) got.insert(got.end(), buf, buf + n);
      if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) break;
    }
  }
  ::close(fd);
  return got;
}

// Every frame the server sends is a response to a request id it knows,
// with status 0 and exactly the payload its header announces; a version
// answer is always the word 1.
void check_responses(const std::vector<uint8_t>& got) {
  size_t at = 0;
  while (at < got.size()) {
    FrameHeader hdr;
    if (got.size() - at < sizeof(hdr)) std::abort();
    std::memcpy(&hdr, got.data() + at, sizeof(hdr));
    at += sizeof(hdr);
    if (hdr.type != kTypeResponse || hdr.status != 0 || hdr.data_len < 0) std::abort();
    if (hdr.id != kIdVersion && hdr.id != kIdCommand) std::abort();
    if (got.size() - at < static_cast<size_t>(hdr.data_len)) std::abort();
    if (hdr.id == kIdVersion) {
      int32_t word;
      if (hdr.data_len != kVersionWordLen) std::abort();
      std::memcpy(&word, got.data() + at, sizeof(word));
      if (word != kProtocolVersion) std::abort();
    }
    at += static_cast<size_t>(hdr.data_len);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qor::fuzz::discard_logs();
  gServerId = qor::fuzz::server_id("frames");
  if (qorpkcs11_comm_server_init(gServerId.c_str(), answer) != 0) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check_responses(converse(data, size));
  return 0;
}
