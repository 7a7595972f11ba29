#include "qorpkcs11/comm/access.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "qorpkcs11/comm/frame.h"

namespace qor::comm {
namespace {

std::mutex gAllowMutex;
std::vector<uid_t> gAllowedUids;
std::vector<pid_t> gAllowedPids;
std::atomic<int32_t> gFrameMs{0};
std::atomic<int32_t> gIdleMs{0};

}  // namespace

bool peer_of(int sock, Peer* out) {
  ucred cred{};
  socklen_t size = sizeof(cred);
  if (::getsockopt(sock, SOL_SOCKET, SO_PEERCRED, &cred, &size) != 0 || size != sizeof(cred)) return false;
  *out = Peer{cred.pid, cred.uid};
  return true;
}

bool peers_restricted() {
  std::lock_guard<std::mutex> lock(gAllowMutex);
  return !gAllowedUids.empty() || !gAllowedPids.empty();
}

bool peer_allowed(const Peer& peer, bool known) {
  std::lock_guard<std::mutex> lock(gAllowMutex);
  if (gAllowedUids.empty() && gAllowedPids.empty()) return true;
  if (!known) return false;
  const auto has = [](const auto& list, auto value) {
    return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
  };
  return has(gAllowedUids, peer.uid) && has(gAllowedPids, peer.pid);
}

Deadline Deadline::in(int32_t ms) {
  Deadline d;
  if (ms > 0) {
    d.set_ = true;
    d.end_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  }
  return d;
}

bool Deadline::arm(int sock) const {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end_ - std::chrono::steady_clock::now());
  if (left.count() <= 0) return false;
  timeval tv{static_cast<time_t>(left.count() / 1000000), static_cast<suseconds_t>(left.count() % 1000000)};
  return ::setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) == 0;
}

Timeouts server_timeouts() { return {gFrameMs, gIdleMs}; }

}  // namespace qor::comm

using namespace qor::comm;

extern "C" int qorpkcs11_comm_server_allow_uid(uint32_t uid) {
  std::lock_guard<std::mutex> lock(gAllowMutex);
  gAllowedUids.push_back(static_cast<uid_t>(uid));
  return kOk;
}

extern "C" int qorpkcs11_comm_server_allow_pid(int32_t pid) {
  std::lock_guard<std::mutex> lock(gAllowMutex);
  gAllowedPids.push_back(static_cast<pid_t>(pid));
  return kOk;
}

extern "C" int qorpkcs11_comm_server_set_timeouts(int32_t frame_ms, int32_t idle_ms) {
  if (frame_ms < 0 || idle_ms < 0) return kInvalidArguments;
  gFrameMs = frame_ms;
  gIdleMs = idle_ms;
  return kOk;
}
