#include "peer.h"

#include "qorpkcs11/comm/client.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace qor::test {

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

int Fd::release() {
  int fd = fd_;
  fd_ = -1;
  return fd;
}

void Fd::reset() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

std::string unique_server_id(char lead) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(info->test_suite_name()) + "." + info->name();
  if (name.size() > 80) name.resize(80);
  // The pid comes first so it survives any cut at 107 characters.
  return std::string(1, lead) + "qc" + std::to_string(getpid()) + "." + name;
}

namespace {

// Written independently of the library: the name is characters 2 to 107 of
// the id at sun_path[1..], zero-padded, and the whole structure is passed.
sockaddr_un raw_address(const std::string& server_id) {
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  if (server_id.size() > 1)
    std::memcpy(addr.sun_path + 1, server_id.data() + 1, std::min<size_t>(server_id.size() - 1, 106));
  return addr;
}

}  // namespace

Fd listen_raw(const std::string& server_id) {
  Fd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un addr = raw_address(server_id);
  EXPECT_EQ(0, ::bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr))) << strerror(errno);
  EXPECT_EQ(0, ::listen(fd.get(), 1));
  return fd;
}

Fd accept_raw(const Fd& listener) {
  if (!silent_for(listener, 5000)) return Fd(::accept(listener.get(), nullptr, nullptr));
  ADD_FAILURE() << "no client connected";
  return Fd();
}

Fd connect_raw(const std::string& server_id) {
  sockaddr_un addr = raw_address(server_id);
  for (int attempt = 0; attempt < 500; ++attempt) {
    Fd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) return fd;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << "could not connect to " << server_id;
  return Fd();
}

Bytes header(uint32_t id, uint32_t type, int32_t status, int32_t data_len) {
  Bytes out(16);
  std::memcpy(out.data(), &id, 4);
  std::memcpy(out.data() + 4, &type, 4);
  std::memcpy(out.data() + 8, &status, 4);
  std::memcpy(out.data() + 12, &data_len, 4);
  return out;
}

Bytes word(int32_t value) {
  Bytes out(4);
  std::memcpy(out.data(), &value, 4);
  return out;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

void write_all(const Fd& fd, const Bytes& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::send(fd.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) {
      ADD_FAILURE() << "raw peer write failed: " << strerror(errno);
      return;
    }
    done += static_cast<size_t>(n);
  }
}

Bytes read_up_to(const Fd& fd, size_t n, int timeout_ms) {
  Bytes out(n);
  size_t done = 0;
  while (done < n) {
    pollfd p{fd.get(), POLLIN, 0};
    if (::poll(&p, 1, timeout_ms) != 1) break;
    ssize_t got = ::recv(fd.get(), out.data() + done, n - done, 0);
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  out.resize(done);
  return out;
}

bool silent_for(const Fd& fd, int ms) {
  pollfd p{fd.get(), POLLIN, 0};
  return ::poll(&p, 1, ms) == 0;
}

bool closed_by_peer(const Fd& fd, int timeout_ms) {
  uint8_t sink[256];
  for (;;) {
    pollfd p{fd.get(), POLLIN, 0};
    if (::poll(&p, 1, timeout_ms) != 1) return false;
    ssize_t got = ::recv(fd.get(), sink, sizeof(sink), 0);
    if (got == 0) return true;
    if (got < 0) return errno == ECONNRESET;
  }
}

Bytes version_request() { return header(100, 103, 0, 4) + word(1); }
Bytes version_response() { return header(100, 104, 0, 4) + word(1); }

bool answer_handshake(const Fd& conn) {
  if (read_up_to(conn, 20) != version_request()) return false;
  write_all(conn, version_response());
  return true;
}

Bytes command(const Bytes& payload) {
  return header(101, 103, 0, static_cast<int32_t>(payload.size())) + payload;
}

Bytes response(const Bytes& payload) {
  return header(101, 104, 0, static_cast<int32_t>(payload.size())) + payload;
}

Exchange execute(const Bytes& request) {
  static uint8_t untouched;
  uint8_t* out = &untouched;
  uint32_t out_len = 0xA5A5A5A5u;
  Exchange ex{qorpkcs11_comm_client_execute_command(request.data(), static_cast<int32_t>(request.size()),
                                                    &out, &out_len),
              out != &untouched || out_len != 0xA5A5A5A5u, {}};
  if (ex.touched && out != nullptr) {
    ex.reply.assign(out, out + out_len);
    free(out);
  }
  return ex;
}

int init_client(const std::string& server_id) {
  int rc = qorpkcs11_comm_client_init(server_id.c_str());
  for (int attempt = 0; rc == 7 && attempt < 500; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    rc = qorpkcs11_comm_client_init(server_id.c_str());
  }
  return rc;
}

}  // namespace qor::test
