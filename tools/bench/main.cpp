// qor_bench: the same small and large PKCS#11 calls timed along four paths
// to one SoftHSM2 token (see docs/performance.md, run by scripts/bench.sh):
//   direct  SoftHSM2 loaded in this process (platform ABI)
//   qor     this library's client -> socket -> serving process -> bridge
//   p11kit  p11-kit-client.so -> p11-kit server (P11_KIT_SERVER_ADDRESS)
//   floor   the qor frames of each operation echoed over a bare socket
//   floor1  the same, header and payload sent with one sendmsg each way
//   java    the qor path called from Java through the natives
//   bridge  the bridge over SoftHSM2 in this process (project ABI, no socket)
//   java-bridge  the bridge path called from Java through the natives
// Every path reports, beside the wall time, the CPU time per operation that
// the calling process (cpu_client) and the serving process (cpu_server)
// spent over the timed loop, from the kernel's accounting of each process.
// Options before the benchmark's own: --paths=direct,qor,p11kit,floor,floor1,java,bridge,java-bridge
// --null-logger (every line loggable, handed to a logger that drops it).
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "abi.h"
#include "java_path.h"
#include "qorpkcs11/common/log.h"
#include "servers.h"

namespace qor::bench {
namespace {

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "qor_bench: %s\n", what.c_str());
  std::exit(2);
}

// Numbered as JavaCalls numbers them.
enum class Op { kRandom32 = 0, kDigest1K = 1, kDigest1M = 2, kFind = 3, kSign = 4 };
struct OpInfo {
  Op op;
  const char* name;
};
const OpInfo kOps[] = {{Op::kRandom32, "GenerateRandom_32B"},
                       {Op::kDigest1K, "Digest_SHA256_1KiB"},
                       {Op::kDigest1M, "Digest_SHA256_1MiB"},
                       {Op::kFind, "FindObjects_triple"},
                       {Op::kSign, "Sign_RSA2048"}};

const std::vector<unsigned char>& payload() {
  static const std::vector<unsigned char> data = [] {
    std::vector<unsigned char> d(1 << 20);
    for (size_t i = 0; i < d.size(); ++i) d[i] = static_cast<unsigned char>(i * 31 + 7);
    return d;
  }();
  return data;
}

constexpr char kKeyLabel[] = "bench-rsa";

// A logged-in session on the token labelled "bench", in either ABI.
template <class A>
class Session {
 public:
  using UL = typename A::CK_ULONG;

  explicit Session(typename A::CK_FUNCTION_LIST* f, const char* path) : f_(f) {
    // The direct and bridge paths share one SoftHSM2 in this process.
    const auto init = f_->C_Initialize(nullptr);
    if (init != CKR_CRYPTOKI_ALREADY_INITIALIZED) check(init, path, "C_Initialize");
    UL n = 16;
    UL slots[16];
    check(f_->C_GetSlotList(CK_TRUE, slots, &n), path, "C_GetSlotList");
    UL slot = ~UL(0);
    for (UL i = 0; i < n; ++i) {
      typename A::CK_TOKEN_INFO info{};
      if (f_->C_GetTokenInfo(slots[i], &info) == CKR_OK &&
          std::memcmp(info.label, "bench ", 6) == 0)
        slot = slots[i];
    }
    if (slot == ~UL(0)) die(std::string(path) + ": no token labelled bench");
    check(f_->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &s_),
          path, "C_OpenSession");
    unsigned char pin[] = {'1', '2', '3', '4'};
    const auto rv = f_->C_Login(s_, CKU_USER, pin, 4);
    if (rv != CKR_USER_ALREADY_LOGGED_IN) check(rv, path, "C_Login");
    UL count = 0;
    check(find(&key_, &count), path, "finding the key");
    if (count != 1) die(std::string(path) + ": no private key labelled bench-rsa");
  }

  UL session() const { return s_; }
  UL key() const { return key_; }

  bool run(Op op) {
    switch (op) {
      case Op::kRandom32: {
        unsigned char out[32];
        return f_->C_GenerateRandom(s_, out, 32) == CKR_OK;
      }
      case Op::kDigest1K: return digest(1024);
      case Op::kDigest1M: return digest(1 << 20);
      case Op::kFind: {
        typename A::CK_OBJECT_HANDLE h = 0;  // its contents go on the wire
        UL count = 0;
        return find(&h, &count) == CKR_OK && count == 1;
      }
      case Op::kSign: {
        typename A::CK_MECHANISM m{CKM_SHA256_RSA_PKCS, nullptr, 0};
        unsigned char sig[256];
        UL len = sizeof sig;
        auto* data = const_cast<unsigned char*>(payload().data());
        return f_->C_SignInit(s_, &m, key_) == CKR_OK &&
               f_->C_Sign(s_, data, 32, sig, &len) == CKR_OK && len == 256;
      }
    }
    return false;
  }

 private:
  static void check(typename A::CK_RV rv, const char* path, const char* what) {
    if (rv != CKR_OK) die(std::string(path) + ": " + what + " returned " + std::to_string(rv));
  }

  typename A::CK_RV find(typename A::CK_OBJECT_HANDLE* out, UL* count) {
    UL cls = CKO_PRIVATE_KEY;
    char label[sizeof kKeyLabel];
    std::memcpy(label, kKeyLabel, sizeof label);
    typename A::CK_ATTRIBUTE t[2] = {{CKA_CLASS, &cls, static_cast<UL>(sizeof cls)},
                                     {CKA_LABEL, label, static_cast<UL>(sizeof kKeyLabel - 1)}};
    auto rv = f_->C_FindObjectsInit(s_, t, 2);
    if (rv != CKR_OK) return rv;
    rv = f_->C_FindObjects(s_, out, 1, count);
    const auto final_rv = f_->C_FindObjectsFinal(s_);
    return rv != CKR_OK ? rv : final_rv;
  }

  bool digest(UL n) {
    typename A::CK_MECHANISM m{CKM_SHA256, nullptr, 0};
    unsigned char out[32];
    UL len = sizeof out;
    auto* data = const_cast<unsigned char*>(payload().data());
    return f_->C_DigestInit(s_, &m) == CKR_OK && f_->C_Digest(s_, data, n, out, &len) == CKR_OK &&
           len == 32;
  }

  typename A::CK_FUNCTION_LIST* f_;
  typename A::CK_SESSION_HANDLE s_ = 0;
  typename A::CK_OBJECT_HANDLE key_ = 0;
};

template <class A>
typename A::CK_FUNCTION_LIST* open_module(const char* path) {
  void* lib = ::dlopen(path, RTLD_LAZY | RTLD_LOCAL);
  if (lib == nullptr) die(::dlerror());
  auto get = reinterpret_cast<typename A::CK_C_GetFunctionList>(::dlsym(lib, "C_GetFunctionList"));
  typename A::CK_FUNCTION_LIST* list = nullptr;
  if (get == nullptr || get(&list) != CKR_OK) die(std::string("no function list in ") + path);
  return list;
}

// The client side as an app has it: the shared library, whose exported
// client init and function list both the native and the Java path use.
CK_FUNCTION_LIST_PTR connect_wrapper(const std::string& socket) {
  void* lib = ::dlopen(QOR_WRAPPER_PATH, RTLD_LAZY | RTLD_LOCAL);
  if (lib == nullptr) die(::dlerror());
  auto init = reinterpret_cast<int (*)(const char*)>(::dlsym(lib, "qorpkcs11_client_init"));
  if (init == nullptr) die("the wrapper library lacks qorpkcs11_client_init");
  for (int attempt = 0; init(socket.c_str()) != 0; ++attempt) {
    if (attempt == 3000) die("cannot reach the serving process");
    ::usleep(10000);
  }
  return open_module<qor::abi::Target>(QOR_WRAPPER_PATH);
}

// CPU time (user + system, every thread) a process has used, in seconds:
// this one's for pid 0, else a serving process's.
double cpu_seconds(pid_t pid) {
  clockid_t clock = CLOCK_PROCESS_CPUTIME_ID;
  if (pid > 0 && ::clock_getcpuclockid(pid, &clock) != 0) return 0.0;
  timespec t{};
  if (::clock_gettime(clock, &t) != 0) return 0.0;
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// The process and its children: p11-kit's server serves each connection
// from a process it forks.
std::vector<pid_t> with_children(pid_t parent) {
  std::vector<pid_t> pids{parent};
  std::unique_ptr<DIR, int (*)(DIR*)> proc(::opendir("/proc"), ::closedir);
  while (proc != nullptr) {
    const dirent* entry = ::readdir(proc.get());
    if (entry == nullptr) break;
    const pid_t pid = static_cast<pid_t>(std::atoi(entry->d_name));
    if (pid <= 0) continue;
    std::unique_ptr<FILE, int (*)(FILE*)> stat(
        std::fopen(("/proc/" + std::string(entry->d_name) + "/stat").c_str(), "r"), std::fclose);
    char line[512] = {};
    if (stat == nullptr || std::fgets(line, sizeof line, stat.get()) == nullptr) continue;
    // pid (comm) state ppid ...: comm may hold spaces, so read after its ')'.
    const char* after = std::strrchr(line, ')');
    int ppid = 0;
    if (after != nullptr && std::sscanf(after + 1, " %*c %d", &ppid) == 1 && ppid == parent)
      pids.push_back(pid);
  }
  return pids;
}

double cpu_seconds(const std::vector<pid_t>& pids) {
  double sum = 0.0;
  for (pid_t pid : pids) sum += cpu_seconds(pid);
  return sum;
}

// Times `body` (one operation per call) with both processes' CPU beside it.
void register_timed(const std::string& name, pid_t server, const std::function<bool()>& body) {
  benchmark::RegisterBenchmark(name.c_str(), [server, body](benchmark::State& state) {
    // pid 0: an in-process path, with no serving process to account.
    const std::vector<pid_t> serving = server > 0 ? with_children(server) : std::vector<pid_t>{};
    const double client0 = cpu_seconds(0);
    const double server0 = cpu_seconds(serving);
    for (auto _ : state) {
      if (!body()) {
        state.SkipWithError("call failed");
        return;
      }
    }
    const double client = cpu_seconds(0) - client0;
    const double served = cpu_seconds(serving) - server0;
    using benchmark::Counter;
    state.counters["cpu_client"] = Counter(client * 1e6, Counter::kAvgIterations);
    state.counters["cpu_server"] = Counter(served * 1e6, Counter::kAvgIterations);
  })
      ->Unit(benchmark::kMicrosecond)
      ->UseRealTime();
}

void register_path(const char* path, pid_t server, const std::function<bool(Op)>& run) {
  for (const OpInfo& info : kOps)
    register_timed(std::string(info.name) + "/" + path, server, [run, op = info.op] { return run(op); });
}

void count_line(const __android_logger_data*, const char*) {
  LineCounts& counts = line_counts();
  (in_serving_process() ? counts.server : counts.client).fetch_add(1, std::memory_order_relaxed);
}

// One debug line under the client's tag: what every log statement costs
// when its line is not loggable (the check), or when it goes to the logger.
void log_line(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) QOR_LOGD(qor::log::kCommClient, "Bytes written:%d", ++i);
  benchmark::DoNotOptimize(i);
}

bool wants(const std::string& paths, const char* path) {
  return ("," + paths + ",").find(std::string(",") + path + ",") != std::string::npos;
}

}  // namespace
}  // namespace qor::bench

int main(int argc, char** argv) {
  using namespace qor::bench;
  std::string paths = "direct,qor,p11kit,floor,floor1,java,bridge,java-bridge";
  std::vector<char*> rest{argv[0]};
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--paths=", 8) == 0) {
      paths = argv[i] + 8;
    } else if (std::strcmp(argv[i], "--null-logger") == 0) {
      line_counts();  // shared before the serving process forks
      __android_log_set_logger(count_line);
      __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    } else {
      rest.push_back(argv[i]);
    }
  }
  int rest_argc = static_cast<int>(rest.size());
  benchmark::Initialize(&rest_argc, rest.data());

  // Both serving processes fork before this one loads any module.
  const std::string id = std::to_string(::getpid());
  const bool floors = wants(paths, "floor") || wants(paths, "floor1");
  const bool remoted = wants(paths, "qor") || floors || wants(paths, "java");
  std::unique_ptr<ServingProcess> serving;
  std::unique_ptr<FloorServer> floorServer, floorServer1;
  if (remoted) serving = std::make_unique<ServingProcess>("@qorbench-" + id);
  if (wants(paths, "floor"))
    floorServer = std::make_unique<FloorServer>("@qorfloor-" + id, Sends::kTwo);
  if (wants(paths, "floor1"))
    floorServer1 = std::make_unique<FloorServer>("@qorfloor1-" + id, Sends::kOne);

  std::unique_ptr<Session<qor::abi::Target>> qor;
  if (remoted)
    qor = std::make_unique<Session<qor::abi::Target>>(connect_wrapper("@qorbench-" + id), "qor");
  if (wants(paths, "direct")) {
    auto direct = std::make_shared<Session<qor::abi::Host>>(
        open_module<qor::abi::Host>("/usr/lib/softhsm/libsofthsm2.so"), "direct");
    register_path("direct", 0, [direct](Op op) { return direct->run(op); });
  }
  if (wants(paths, "qor")) {
    Session<qor::abi::Target>* s = qor.get();
    register_path("qor", serving->pid(), [s](Op op) { return s->run(op); });
  }
  const bool java = wants(paths, "java") || wants(paths, "java-bridge");
  if (java) start_java(QOR_BENCH_CLASSPATH, QOR_WRAPPER_PATH);
  if (wants(paths, "java")) {
    auto remote = std::make_shared<JavaPath>(QOR_WRAPPER_PATH, ("@qorbench-" + id).c_str(),
                                             qor->session(), qor->key());
    register_path("java", serving->pid(),
                  [remote](Op op) { return remote->run(static_cast<int>(op)); });
  }
  if (wants(paths, "bridge") || wants(paths, "java-bridge")) {
    auto local = std::make_shared<Session<qor::abi::Target>>(
        open_module<qor::abi::Target>(QOR_BRIDGE_PATH), "bridge");
    if (wants(paths, "bridge"))
      register_path("bridge", 0, [local](Op op) { return local->run(op); });
    if (wants(paths, "java-bridge")) {
      auto javaLocal =
          std::make_shared<JavaPath>(QOR_BRIDGE_PATH, nullptr, local->session(), local->key());
      register_path("java-bridge", 0,
                    [javaLocal](Op op) { return javaLocal->run(static_cast<int>(op)); });
      register_timed("JavaCall/java", 0, [javaLocal] {
        benchmark::DoNotOptimize(javaLocal->nothing());
        return true;
      });
    }
  }
  if (wants(paths, "p11kit")) {
    if (std::getenv("P11_KIT_SERVER_ADDRESS") == nullptr) die("P11_KIT_SERVER_ADDRESS is not set");
    auto remote = std::make_shared<Session<qor::abi::Host>>(
        open_module<qor::abi::Host>("/usr/lib/x86_64-linux-gnu/pkcs11/p11-kit-client.so"), "p11kit");
    // scripts/bench.sh exports the p11-kit server's pid for its CPU time.
    const char* pid = std::getenv("P11_KIT_SERVER_PID");
    register_path("p11kit", pid != nullptr ? static_cast<pid_t>(std::atoi(pid)) : 0,
                  [remote](Op op) { return remote->run(op); });
  }
  // Each operation once on the qor path: the frames it sends (replayed by
  // the floor) and how many log statements it passes in each process.
  std::vector<std::vector<Exchange>> frames;
  if (remoted) {
    for (const OpInfo& info : kOps) {
      serving->resetExchanges();
      line_counts().client = 0;
      line_counts().server = 0;
      if (!qor->run(info.op)) die(std::string("qor: ") + info.name + " failed");
      frames.push_back(serving->exchanges());
      std::string seen;
      for (const Exchange& e : frames.back())
        seen += std::to_string(e.request) + ">" + std::to_string(e.reply) + " ";
      seen += "lines " + std::to_string(line_counts().client.load()) + "+" +
              std::to_string(line_counts().server.load());
      benchmark::AddCustomContext(std::string("probe ") + info.name, seen);
    }
    benchmark::RegisterBenchmark("LogLine/qor", log_line);
  }
  for (const FloorServer* server : {floorServer.get(), floorServer1.get()}) {
    if (server == nullptr) continue;
    const bool one = server == floorServer1.get();
    auto client = std::make_shared<FloorClient>((one ? "@qorfloor1-" : "@qorfloor-") + id,
                                                one ? Sends::kOne : Sends::kTwo);
    if (!client->ok()) die("cannot reach the floor server");
    for (size_t k = 0; k < std::size(kOps); ++k) {
      register_timed(std::string(kOps[k].name) + (one ? "/floor1" : "/floor"), server->pid(),
                     [client, sent = frames[k]] {
                       for (const Exchange& e : sent)
                         if (!client->exchange(e)) return false;
                       return true;
                     });
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
