#include "qorpkcs11/comm/frame.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qorpkcs11/comm/access.h"

#include "qorpkcs11/common/log.h"

namespace qor::comm {

sockaddr_un make_address(const char* server_id) {
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  // strncpy stops at the terminator and never touches the last byte here.
  std::strncpy(addr.sun_path, server_id, sizeof(addr.sun_path) - 1);
  addr.sun_path[0] = '\0';
  return addr;
}

namespace {

template <typename Step>
ssize_t move_all(const char* tag, const char* step_log, int32_t len, Step step) {
  int32_t done = 0;
  while (done < len) {
    ssize_t n = step(done, static_cast<size_t>(len - done));
    QOR_LOGD(tag, step_log, static_cast<int>(n));
    if (n < 1) return n;
    done += static_cast<int32_t>(n);
  }
  return 1;
}

}  // namespace

ssize_t send_all(const char* tag, int sock, const void* buf, int32_t len, int flags) {
  if (len < 1) return 1;
  iovec part{const_cast<void*>(buf), static_cast<size_t>(len)};
  return send_all_parts(tag, sock, &part, 1, flags, nullptr);
}

ssize_t send_all_parts(const char* tag, int sock, iovec* parts, int count, int flags, size_t* moved) {
  size_t unread = 0;
  if (moved == nullptr) moved = &unread;
  *moved = 0;
  msghdr msg{};
  msg.msg_iov = parts;
  msg.msg_iovlen = static_cast<decltype(msg.msg_iovlen)>(count);
  for (;;) {
    // Empty parts ahead would make a send of nothing look like a closed peer.
    while (msg.msg_iovlen > 0 && msg.msg_iov->iov_len == 0) {
      ++msg.msg_iov;
      --msg.msg_iovlen;
    }
    if (msg.msg_iovlen == 0) return 1;
    const ssize_t n = ::sendmsg(sock, &msg, flags);
    QOR_LOGD(tag, "Bytes written:%d", static_cast<int>(n));
    if (n < 1) return n;
    *moved += static_cast<size_t>(n);
    // Past what went: whole parts, then into the part it stopped in.
    size_t left = static_cast<size_t>(n);
    while (left > 0 && msg.msg_iovlen > 0 && left >= msg.msg_iov->iov_len) {
      left -= msg.msg_iov->iov_len;
      ++msg.msg_iov;
      --msg.msg_iovlen;
    }
    if (left > 0) {
      msg.msg_iov->iov_base = static_cast<uint8_t*>(msg.msg_iov->iov_base) + left;
      msg.msg_iov->iov_len -= left;
    }
  }
}

size_t ReadAhead::take(uint8_t* to, size_t want) {
  const size_t n = std::min(want, have_ - at_);
  std::memcpy(to, bytes_ + at_, n);
  at_ += n;
  return n;
}

ssize_t ReadAhead::fill(int sock) {
  const ssize_t n = ::recv(sock, bytes_, sizeof(bytes_), 0);
  at_ = 0;
  have_ = n > 0 ? static_cast<size_t>(n) : 0;
  return n;
}

bool sends_logged(const char* tag) {
#if QOR_DEBUG_LOG
  return log::loggable(ANDROID_LOG_DEBUG, tag);
#else
  (void)tag;
  return false;
#endif
}

ssize_t recv_all(const char* tag, int sock, void* buf, int32_t len, int flags) {
  auto* bytes = static_cast<uint8_t*>(buf);
  return move_all(tag, "Bytes read:%d", len, [&](int32_t off, size_t n) {
    return ::recv(sock, bytes + off, n, flags);
  });
}

ssize_t recv_all_until(const char* tag, int sock, void* buf, int32_t len, const Deadline& deadline) {
  auto* bytes = static_cast<uint8_t*>(buf);
  return move_all(tag, "Bytes read:%d", len, [&](int32_t off, size_t n) -> ssize_t {
    if (!deadline.arm(sock)) {
      errno = EAGAIN;
      return -1;
    }
    return ::recv(sock, bytes + off, n, 0);
  });
}

}  // namespace qor::comm
