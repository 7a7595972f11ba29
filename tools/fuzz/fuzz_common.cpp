#include "fuzz_common.h"

#include <android/log.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace qor::fuzz {
namespace {

void sink(const struct __android_logger_data*, const char*) {}

}  // namespace

void discard_logs() {
  __android_log_set_logger(sink);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

std::string server_id(const char* what) {
  return std::string("@qorfuzz-") + what + "-" + std::to_string(getpid());
}

int connect_to(const std::string& id) {
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path + 1, id.data() + 1, std::min<size_t>(id.size() - 1, 106));
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) return fd;
    ::close(fd);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::fprintf(stderr, "no server on %s\n", id.c_str());
  std::abort();
}

}  // namespace qor::fuzz
