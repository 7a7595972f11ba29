// The two serving processes the remoted benchmarks talk to, each forked
// before the benchmark process loads anything else:
//  - the library's own serving side: a Java VM (the module registry lives
//    under a Java monitor), the bridge over SoftHSM2 registered under the
//    socket name, and the transport server thread, as a serving app has them;
//  - the floor: the same frames echoed over a bare abstract stream socket
//    with the same 16-byte header and the same send and receive calls, with
//    nothing else done per frame.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace qor::bench {

// Sizes of the request and reply payloads the serving process saw, in order
// since the last reset: what the floor replays for the same operation.
struct Exchange {
  int32_t request;
  int32_t reply;
};

// Log lines handed to the logger, counted per process (shared memory, set
// up by the first call, before any fork).
struct LineCounts {
  std::atomic<long> client;
  std::atomic<long> server;
};
LineCounts& line_counts();
// True in the forked serving process only.
bool in_serving_process();

class ServingProcess {
 public:
  // Forks; the child never returns. `name` is the socket and module name.
  explicit ServingProcess(const std::string& name);
  ~ServingProcess();
  ServingProcess(const ServingProcess&) = delete;
  ServingProcess& operator=(const ServingProcess&) = delete;

  void resetExchanges();
  std::vector<Exchange> exchanges() const;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

// How a floor end sends a frame: header and payload with one send each, as
// the library's transport does, or both with one sendmsg, the least any
// framed exchange can do.
enum class Sends { kTwo, kOne };

class FloorServer {
 public:
  FloorServer(const std::string& name, Sends sends);
  ~FloorServer();
  FloorServer(const FloorServer&) = delete;
  FloorServer& operator=(const FloorServer&) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

// The client end of the floor: one connection, reused buffers.
class FloorClient {
 public:
  FloorClient(const std::string& name, Sends sends);
  ~FloorClient();
  FloorClient(const FloorClient&) = delete;
  FloorClient& operator=(const FloorClient&) = delete;

  bool ok() const { return sock_ >= 0; }
  // One frame out and its answer back, as the library's client moves them.
  bool exchange(const Exchange& e);

 private:
  int sock_ = -1;
  Sends sends_;
  std::vector<unsigned char> out_, in_;
};

// Connects with retries while the peer starts; -1 after 30 s.
int connect_abstract(const std::string& name);

}  // namespace qor::bench
