#include "processes.h"

#include <dirent.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

int gHoldSignal = -1;  // in a server child: where it reports a held call
std::mutex gHoldMutex;
std::condition_variable gHoldChanged;
bool gHeld = false;
bool gReleased = false;

void hold() {
  if (gHoldSignal >= 0) {
    (void)!::write(gHoldSignal, "h", 1);
    for (;;) pause();  // until the test kills this process
  }
  std::unique_lock<std::mutex> lock(gHoldMutex);
  gHeld = true;
  gHoldChanged.notify_all();
  gHoldChanged.wait(lock, [] { return gReleased; });
}

}  // namespace

Bytes reversed(const Bytes& request) {
  Bytes reply = text("R:");
  reply.insert(reply.end(), request.rbegin(), request.rend());
  return reply;
}

int reverse_or_hold(const void* data, int32_t len, void** out, uint32_t* out_len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  const Bytes request(bytes, bytes + len);
  if (request == kHold) hold();
  const Bytes reply = reversed(request);
  *out = std::malloc(reply.size());
  std::memcpy(*out, reply.data(), reply.size());
  *out_len = static_cast<uint32_t>(reply.size());
  return 0;
}

bool wait_until_held(int timeout_ms) {
  std::unique_lock<std::mutex> lock(gHoldMutex);
  return gHoldChanged.wait_for(lock, std::chrono::milliseconds(timeout_ms), [] { return gHeld; });
}

void release_hold() {
  std::lock_guard<std::mutex> lock(gHoldMutex);
  gReleased = true;
  gHoldChanged.notify_all();
}

Child::Child(const std::function<void()>& body) : pid_(fork()) {
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
  }
  EXPECT_NE(-1, pid_);
}

bool Child::kill() {
  if (pid_ <= 0) return false;
  ::kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

ServerProcess::ServerProcess(const std::string& server_id) {
  EXPECT_EQ(0, ::pipe(pipe_));
  child_ = std::make_unique<Child>([&] {
    ::close(pipe_[0]);
    gHoldSignal = pipe_[1];
    if (qorpkcs11_comm_server_init(server_id.c_str(), reverse_or_hold) != 0) _exit(1);
    for (;;) pause();
  });
  ::close(pipe_[1]);
}

ServerProcess::~ServerProcess() {
  child_.reset();
  ::close(pipe_[0]);
}

bool ServerProcess::wait_until_holding(int timeout_ms) { return wait_for_byte(pipe_[0], timeout_ms); }

bool wait_for_byte(int fd, int timeout_ms) {
  pollfd p{fd, POLLIN, 0};
  char c;
  return ::poll(&p, 1, timeout_ms) == 1 && ::read(fd, &c, 1) == 1;
}

int open_descriptors() {
  int n = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (readdir(dir) != nullptr) ++n;
  closedir(dir);
  return n - 3;  // ".", ".." and the directory's own descriptor
}

}  // namespace qor::test
