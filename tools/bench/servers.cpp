#include "servers.h"

#include <dlfcn.h>
#include <jni.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/registry/registry.h"
#include "qorpkcs11/server/server.h"

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* reserved);

namespace qor::bench {
namespace {

using comm::FrameHeader;

[[noreturn]] void die(const char* what) {
  std::fprintf(stderr, "qor_bench: %s\n", what);
  std::_Exit(2);
}

// Shared with the serving child: written by its server thread, read here
// between benchmarks only.
struct Recorder {
  std::atomic<int> count;
  Exchange seen[32];
};
Recorder* gRecorder = nullptr;
bool gServing = false;

void* shared_memory(size_t size) {
  void* shared =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) die("mmap failed");
  return shared;
}

int recording_process(const void* data, int32_t len, void** out, uint32_t* out_len) {
  const int ret = Generate_Operation_Result_Server(data, len, out, out_len);
  const int i = gRecorder->count.load(std::memory_order_relaxed);
  if (i < 32) gRecorder->seen[i] = {len, static_cast<int32_t>(*out_len)};
  gRecorder->count.store(i + 1, std::memory_order_release);
  return ret;
}

// The serving app's start-up: a VM, the registry lock, the module connected
// under its name, the transport server on that name.
[[noreturn]] void serve(const std::string& name) {
  gServing = true;
  JavaVMOption options[] = {{const_cast<char*>("-Xrs"), nullptr},
                            {const_cast<char*>("-Xmx64m"), nullptr}};
  JavaVMInitArgs args{};
  args.version = JNI_VERSION_1_8;
  args.nOptions = 2;
  args.options = options;
  JavaVM* vm = nullptr;
  JNIEnv* env = nullptr;
  if (JNI_CreateJavaVM(&vm, reinterpret_cast<void**>(&env), &args) != JNI_OK) die("no Java VM");
  JNI_OnLoad(vm, nullptr);
  moduleListLock = createLockObject(env);

  void* lib = ::dlopen(QOR_BRIDGE_PATH, RTLD_LAZY | RTLD_LOCAL);
  if (lib == nullptr) die(::dlerror());
  auto get = reinterpret_cast<CK_C_GetFunctionList>(::dlsym(lib, "C_GetFunctionList"));
  CK_FUNCTION_LIST_PTR list = nullptr;
  if (get == nullptr || get(&list) != CKR_OK) die("no function list in the bridge");

  jclass objectClass = env->FindClass("java/lang/Object");
  jobject owner = env->NewGlobalRef(env->AllocObject(objectClass));
  putModuleEntry(env, owner, new ModuleBinding{lib, list, nullptr, strdup(name.c_str())});
  setModuleName_Server(name.c_str());
  if (qorpkcs11_comm_server_init(name.c_str(), recording_process) != 0) die("server init failed");
  for (;;) ::pause();
}

bool send_full(int sock, const void* buf, size_t len) {
  const auto* p = static_cast<const unsigned char*>(buf);
  while (len > 0) {
    const ssize_t n = ::send(sock, p, len, MSG_NOSIGNAL);
    if (n < 1) return false;
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

// Header and payload with one sendmsg (more only if the socket takes part).
bool send_frame(int sock, const FrameHeader& hdr, const std::vector<unsigned char>& payload,
                Sends sends) {
  if (sends == Sends::kTwo)
    return send_full(sock, &hdr, sizeof hdr) && send_full(sock, payload.data(), payload.size());
  iovec parts[2] = {{const_cast<FrameHeader*>(&hdr), sizeof hdr},
                    {const_cast<unsigned char*>(payload.data()), payload.size()}};
  msghdr msg{};
  msg.msg_iov = parts;
  msg.msg_iovlen = 2;
  size_t left = sizeof hdr + payload.size();
  while (left > 0) {
    const ssize_t n = ::sendmsg(sock, &msg, MSG_NOSIGNAL);
    if (n < 1) return false;
    left -= static_cast<size_t>(n);
    // A partial send: move the iovecs past what went.
    size_t sent = static_cast<size_t>(n);
    while (msg.msg_iovlen > 0 && sent >= msg.msg_iov->iov_len) {
      sent -= msg.msg_iov->iov_len;
      ++msg.msg_iov;
      --msg.msg_iovlen;
    }
    if (msg.msg_iovlen > 0) {
      msg.msg_iov->iov_base = static_cast<unsigned char*>(msg.msg_iov->iov_base) + sent;
      msg.msg_iov->iov_len -= sent;
    }
  }
  return true;
}

bool recv_full(int sock, void* buf, size_t len) {
  auto* p = static_cast<unsigned char*>(buf);
  while (len > 0) {
    const ssize_t n = ::recv(sock, p, len, 0);
    if (n < 1) return false;
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

// Echo server: the request header carries the reply length in `status`
// (which the library leaves zero), so the floor answers each frame with a
// payload of the size the real server answered with.
[[noreturn]] void echo(const std::string& name, Sends sends) {
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un addr = comm::make_address(name.c_str());
  if (::bind(listener, reinterpret_cast<const sockaddr*>(&addr), comm::kAddressLength) != 0 ||
      ::listen(listener, 1) != 0)
    die("floor server cannot listen");
  std::vector<unsigned char> in, out;
  for (;;) {
    const int sock = ::accept(listener, nullptr, nullptr);
    FrameHeader hdr;
    while (recv_full(sock, &hdr, sizeof hdr)) {
      if (hdr.data_len < 1 || hdr.status < 1) break;
      in.resize(static_cast<size_t>(hdr.data_len));
      if (!recv_full(sock, in.data(), in.size())) break;
      out.resize(static_cast<size_t>(hdr.status));
      FrameHeader reply{hdr.id, comm::kTypeResponse, 0, hdr.status};
      if (!send_frame(sock, reply, out, sends)) break;
    }
    ::close(sock);
  }
}

template <class Body>
pid_t fork_into(Body body) {
  const pid_t pid = ::fork();
  if (pid < 0) die("fork failed");
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive a crashed benchmark
    body();
  }
  return pid;
}

void stop(pid_t pid) {
  if (pid <= 0) return;
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

}  // namespace

LineCounts& line_counts() {
  static LineCounts* const counts = new (shared_memory(sizeof(LineCounts))) LineCounts{};
  return *counts;
}

bool in_serving_process() { return gServing; }

int connect_abstract(const std::string& name) {
  const sockaddr_un addr = comm::make_address(name.c_str());
  for (int attempt = 0; attempt < 3000; ++attempt) {
    const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::connect(sock, reinterpret_cast<const sockaddr*>(&addr), comm::kAddressLength) == 0)
      return sock;
    ::close(sock);
    ::usleep(10000);
  }
  return -1;
}

ServingProcess::ServingProcess(const std::string& name) {
  gRecorder = new (shared_memory(sizeof(Recorder))) Recorder{};
  pid_ = fork_into([&] { serve(name); });
}

ServingProcess::~ServingProcess() { stop(pid_); }

void ServingProcess::resetExchanges() { gRecorder->count.store(0, std::memory_order_release); }

std::vector<Exchange> ServingProcess::exchanges() const {
  const int n = gRecorder->count.load(std::memory_order_acquire);
  return std::vector<Exchange>(gRecorder->seen, gRecorder->seen + (n < 32 ? n : 32));
}

FloorServer::FloorServer(const std::string& name, Sends sends)
    : pid_(fork_into([&] { echo(name, sends); })) {}

FloorServer::~FloorServer() { stop(pid_); }

FloorClient::FloorClient(const std::string& name, Sends sends)
    : sock_(connect_abstract(name)), sends_(sends) {}

FloorClient::~FloorClient() {
  if (sock_ >= 0) ::close(sock_);
}

bool FloorClient::exchange(const Exchange& e) {
  out_.resize(static_cast<size_t>(e.request));
  in_.resize(static_cast<size_t>(e.reply));
  FrameHeader hdr{comm::kIdCommand, comm::kTypeRequest, e.reply, e.request};
  return send_frame(sock_, hdr, out_, sends_) && recv_full(sock_, &hdr, sizeof hdr) && hdr.data_len == e.reply &&
         recv_full(sock_, in_.data(), in_.size());
}

}  // namespace qor::bench
