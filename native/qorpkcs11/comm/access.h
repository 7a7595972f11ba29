// Who may use the command socket and how long a peer may stall it. Every
// measure is off until the embedding app turns it on; with none on, both
// ends behave and log exactly as without them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>

extern "C" {

// Serving side. Only peers whose user id is allowed (once any is) and whose
// process id is allowed (once any is) are served; any other is closed right
// after accept, before a byte is read. Apply from the next accept. 0.
int qorpkcs11_comm_server_allow_uid(uint32_t uid);
int qorpkcs11_comm_server_allow_pid(int32_t pid);
// A frame that has begun must be whole within frame_ms; a connection that
// sends nothing for idle_ms is dropped. 0 turns either off (the default).
// 0, or 5 for a negative time.
int qorpkcs11_comm_server_set_timeouts(int32_t frame_ms, int32_t idle_ms);
// Waits up to timeout_ms for the server thread to listen: 0 once it does,
// its failure code (6 socket, 8 bind, e.g. the name is taken, 22 listen),
// 2 when it was never started, 26 when it has not got there in time.
int qorpkcs11_comm_server_wait_listening(int32_t timeout_ms);

// Calling side: the next init checks that the server is this user (or this
// process), and fails with 24 after closing the socket if it is not. A
// negative value forgets the check. 0.
int qorpkcs11_comm_client_expect_server_uid(int64_t uid);
int qorpkcs11_comm_client_expect_server_pid(int64_t pid);

}  // extern "C"

namespace qor::comm {

// The kernel's credentials of the process at the other end of `sock`.
struct Peer {
  pid_t pid;
  uid_t uid;
};
bool peer_of(int sock, Peer* out);

// Whether the serving side may serve this peer (see allow_uid/allow_pid).
bool peer_allowed(const Peer& peer, bool known);
bool peers_restricted();

// The end of a frame that has begun, when frames have a time limit.
class Deadline {
 public:
  static Deadline in(int32_t ms);  // ms 0: none
  bool none() const { return !set_; }
  // Bounds the next receive on sock by the time left; false once it is up.
  bool arm(int sock) const;

 private:
  bool set_ = false;
  std::chrono::steady_clock::time_point end_{};
};

struct Timeouts {
  int32_t frame_ms;
  int32_t idle_ms;
};
Timeouts server_timeouts();

// Called by the serving layer to learn of every connection that ended.
using DisconnectFn = void (*)();
void server_on_disconnect(DisconnectFn fn);

}  // namespace qor::comm
