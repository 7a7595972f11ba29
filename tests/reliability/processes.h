// Processes for the fault tests: a transport server or a client in a child
// process that the test can kill at a chosen moment.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "peer.h"

namespace qor::test {

// The reply every test server gives: the request reversed behind "R:", so a
// reply belongs to exactly one request and is never the request itself.
Bytes reversed(const Bytes& request);

// A request that makes the server's callback report that it holds the call
// and then block until released (in process) or killed (in a child).
inline const Bytes kHold = text("hold");

// Processing callback: kHold blocks (see hold_released), anything else gets
// reversed(). Usable as the callback of an in-process server.
int reverse_or_hold(const void* data, int32_t len, void** out, uint32_t* out_len);
// In-process server: true once a kHold request is inside the callback.
bool wait_until_held(int timeout_ms = 10000);
// In-process server: lets the held call return its reply.
void release_hold();

// A child process; SIGKILLed and reaped when this goes out of scope.
class Child {
 public:
  // Runs `body` in a child that dies with the test process; `body` must not
  // return (it ends with _exit).
  explicit Child(const std::function<void()>& body);
  ~Child() { kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // SIGKILL and reap; true if the child was still running until then.
  bool kill();

 private:
  pid_t pid_;
};

// A transport server serving reverse_or_hold in a child process. Its holding
// a kHold request is reported through a pipe: wait_until_holding().
class ServerProcess {
 public:
  explicit ServerProcess(const std::string& server_id);
  ~ServerProcess();
  bool wait_until_holding(int timeout_ms = 10000);
  bool kill() { return child_->kill(); }

 private:
  int pipe_[2];
  std::unique_ptr<Child> child_;
};

// True once a byte could be read from `fd`.
bool wait_for_byte(int fd, int timeout_ms = 10000);

// The descriptors this process has open.
int open_descriptors();

}  // namespace qor::test
