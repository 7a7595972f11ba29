// Scripted raw-socket peers for the transport tests: they build the
// abstract address on their own, write exact bytes and read exact bytes.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace qor::test {

using Bytes = std::vector<uint8_t>;

// Owns one descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept;
  ~Fd() { reset(); }
  int get() const { return fd_; }
  int release();
  void reset();
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// A server id no other test (or parallel test process) uses; `lead` becomes
// the first character, which names nothing.
std::string unique_server_id(char lead = '@');

Fd listen_raw(const std::string& server_id);
Fd accept_raw(const Fd& listener);
// Retries while the server thread is still coming up.
Fd connect_raw(const std::string& server_id);

Bytes header(uint32_t id, uint32_t type, int32_t status, int32_t data_len);
Bytes word(int32_t value);
Bytes operator+(Bytes a, const Bytes& b);
Bytes text(const std::string& s);

void write_all(const Fd& fd, const Bytes& bytes);
// Up to n bytes; fewer when the peer closes or nothing arrives in time.
Bytes read_up_to(const Fd& fd, size_t n, int timeout_ms = 5000);
// True when nothing arrives within the time (the peer is silent).
bool silent_for(const Fd& fd, int ms);
// True when the peer has closed (pending data is consumed).
bool closed_by_peer(const Fd& fd, int timeout_ms = 5000);

// The client's version request and the server's answer, byte for byte.
Bytes version_request();
Bytes version_response();
// Reads the client's version request and answers it; false if it differed.
bool answer_handshake(const Fd& conn);
// Command frames as the client sends them and as the server answers them.
Bytes command(const Bytes& payload);
Bytes response(const Bytes& payload);

// One client exchange; `touched` is false when the outputs were left alone.
struct Exchange {
  int rc;
  bool touched;
  Bytes reply;
};
Exchange execute(const Bytes& request);
// Client init, retried while an in-process server thread is still starting.
int init_client(const std::string& server_id);

// Arguments that every send and receive loop refuses with 5.
struct BadLoopArgs {
  const char* name;
  int sock;
  bool null_buf;
  int32_t len;
};
inline void PrintTo(const BadLoopArgs& c, std::ostream* os) { *os << c.name; }
inline const BadLoopArgs kBadLoopArgs[] = {
    {"NegativeSocket", -1, false, 4},
    {"NullBuffer", 0, true, 4},
    {"ZeroLength", 0, false, 0},
    {"NegativeLength", 0, false, -4},
};

}  // namespace qor::test
