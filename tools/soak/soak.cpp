// Soak: remoted calls of mixed kinds through the real deployment (client
// proxies → abstract socket → transport server → processor → test module in
// a serving process of its own), with the resident memory of both processes
// sampled as it goes. After a warm-up (a tenth of the run, at least 10,000
// calls) neither may grow by more than a small fixed bound.
//
//   qor_soak [calls=200000] [--bound-kib=N] [--report-only]
//
// Prints one line per sample (calls made, client and server resident KiB)
// and exits 1 when a call fails or either process grew past the bound.
#include <android/log.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/server/server.h"
#include "served_module.h"

namespace {

constexpr CK_SLOT_ID kSlot = 1;
constexpr CK_UTF8CHAR kUserPin[] = {'1', '2', '3', '4'};
constexpr CK_OBJECT_HANDLE kRsaPublic = 3;
constexpr CK_OBJECT_HANDLE kRsaPrivate = 4;
constexpr CK_OBJECT_HANDLE kAesKey = 5;

long resident_kib(pid_t pid) {
  std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

[[noreturn]] void serve(const std::string& name) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  qor::test::ServedModule served(name.c_str());
  if (qorpkcs11_init_server(name.c_str()) != 0) _exit(1);
  for (;;) pause();
}

// One round of the calls an app makes, 26 of them; counts the calls made
// and the ones that did not give the expected result.
// (Output buffers start zeroed: the proxies send what is in them, as deployed
// peers expect, and the Valgrind run must not see the caller's garbage.)
class Round {
 public:
  explicit Round(CK_FUNCTION_LIST& f) : f_(f) {}

  void run(unsigned round) {
    CK_INFO info{};
    expect(f_.C_GetInfo(&info));
    CK_ULONG count = 0;
    expect(f_.C_GetSlotList(CK_TRUE, nullptr, &count));
    std::vector<CK_SLOT_ID> slots(count);
    expect(f_.C_GetSlotList(CK_TRUE, slots.data(), &count));
    CK_TOKEN_INFO token{};
    expect(f_.C_GetTokenInfo(kSlot, &token));
    CK_MECHANISM_TYPE mechanisms[64] = {};
    count = 64;
    expect(f_.C_GetMechanismList(kSlot, mechanisms, &count));

    CK_SESSION_HANDLE h = 0;
    expect(f_.C_OpenSession(kSlot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &h));
    const CK_RV login = f_.C_Login(h, CKU_USER, const_cast<CK_UTF8CHAR*>(kUserPin), sizeof(kUserPin));
    expect(login == CKR_USER_ALREADY_LOGGED_IN ? CKR_OK : login);

    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &keyClass, sizeof(keyClass)}};
    expect(f_.C_FindObjectsInit(h, search, 1));
    CK_OBJECT_HANDLE found[8] = {};
    expect(f_.C_FindObjects(h, found, 8, &count));
    expect(f_.C_FindObjectsFinal(h));

    CK_ATTRIBUTE modulus = {CKA_MODULUS, nullptr, 0};
    expect(f_.C_GetAttributeValue(h, kRsaPublic, &modulus, 1));
    std::vector<CK_BYTE> value(modulus.ulValueLen);
    modulus.pValue = value.data();
    expect(f_.C_GetAttributeValue(h, kRsaPublic, &modulus, 1));

    // Data that differs every round, in sizes from 1 byte to 4 KiB.
    std::vector<CK_BYTE> data(1 + round * 131 % 4096, static_cast<CK_BYTE>(round));
    const auto len = static_cast<CK_ULONG>(data.size());
    CK_MECHANISM sign = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    expect(f_.C_SignInit(h, &sign, kRsaPrivate));
    CK_ULONG sigLen = 0;
    expect(f_.C_Sign(h, data.data(), len, nullptr, &sigLen));
    std::vector<CK_BYTE> signature(sigLen);
    expect(f_.C_Sign(h, data.data(), len, signature.data(), &sigLen));

    CK_MECHANISM digest = {CKM_SHA256, nullptr, 0};
    expect(f_.C_DigestInit(h, &digest));
    CK_BYTE hash[32] = {};
    CK_ULONG hashLen = sizeof(hash);
    expect(f_.C_Digest(h, data.data(), len, hash, &hashLen));

    CK_BYTE iv[16] = {};
    CK_MECHANISM cbc = {CKM_AES_CBC, iv, sizeof(iv)};
    expect(f_.C_EncryptInit(h, &cbc, kAesKey));
    std::vector<CK_BYTE> cipher(len + 16);
    CK_ULONG cipherLen = static_cast<CK_ULONG>(cipher.size());
    expect(f_.C_Encrypt(h, data.data(), len & ~15u, cipher.data(), &cipherLen));

    CK_BYTE random[64] = {};
    expect(f_.C_GenerateRandom(h, random, 1 + round % sizeof(random)));

    CK_OBJECT_CLASS dataClass = CKO_DATA;
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE object[] = {{CKA_CLASS, &dataClass, sizeof(dataClass)},
                             {CKA_TOKEN, &no, sizeof(no)},
                             {CKA_VALUE, data.data(), std::min<CK_ULONG>(len, 256)}};
    CK_OBJECT_HANDLE created = 0;
    expect(f_.C_CreateObject(h, object, 3, &created));
    CK_ULONG size = 0;
    expect(f_.C_GetObjectSize(h, created, &size));
    expect(f_.C_DestroyObject(h, created));

    // The session handle does not cross the wire (deployed behaviour): the
    // module is asked about handle 0.
    CK_SESSION_INFO session{};
    expect(f_.C_GetSessionInfo(h, &session), CKR_SESSION_HANDLE_INVALID);
    CK_SLOT_ID slot = 0;
    expect(f_.C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
    expect(f_.C_CloseSession(h));
  }

  long calls() const { return calls_; }
  long failures() const { return failures_; }

 private:
  void expect(CK_RV rv, CK_RV wanted = CKR_OK) {
    ++calls_;
    if (rv == wanted) return;
    if (++failures_ <= 5) std::fprintf(stderr, "call %ld returned 0x%lx\n", calls_, static_cast<unsigned long>(rv));
  }

  CK_FUNCTION_LIST& f_;
  long calls_ = 0;
  long failures_ = 0;
};

struct Sample {
  long calls;
  long client;
  long server;
};

}  // namespace

int main(int argc, char** argv) {
  long target = 200000;
  long bound = 2048;
  bool reportOnly = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--bound-kib=", 0) == 0)
      bound = std::atol(arg.c_str() + 12);
    else if (arg == "--report-only")
      reportOnly = true;
    else
      target = std::atol(arg.c_str());
  }

  const std::string name = "@qorsoak-" + std::to_string(getpid());
  const pid_t server = fork();
  if (server == 0) serve(name);
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);

  // The serving process starts a VM first: seconds, minutes under Valgrind.
  int rc = qorpkcs11_client_init(name.c_str());
  for (int attempt = 0; rc == 7 && attempt < 30000; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    rc = qorpkcs11_client_init(name.c_str());
  }
  CK_FUNCTION_LIST_PTR f = nullptr;
  C_GetFunctionList(&f);
  // The serving process brings its module up ready; a second initialisation
  // is told so.
  const CK_RV init = rc == 0 ? f->C_Initialize(nullptr) : CKR_GENERAL_ERROR;
  if (init != CKR_OK && init != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
    std::fprintf(stderr, "no serving process (%d)\n", rc);
    kill(server, SIGKILL);
    return 1;
  }

  // A sample every 5% of the run.
  const long every = std::max(1000L, target / 20);
  std::vector<Sample> samples;
  Round round(*f);
  const auto start = std::chrono::steady_clock::now();
  std::printf("%10s %12s %12s\n", "calls", "client_kib", "server_kib");
  for (unsigned r = 0; round.calls() < target; ++r) {
    round.run(r);
    if (samples.empty() || round.calls() - samples.back().calls >= every || round.calls() >= target) {
      samples.push_back({round.calls(), resident_kib(getpid()), resident_kib(server)});
      std::printf("%10ld %12ld %12ld\n", samples.back().calls, samples.back().client, samples.back().server);
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  f->C_Finalize(nullptr);
  qorpkcs11_client_deinit();
  // A terminating signal rather than SIGKILL, so that a memory checker
  // watching the serving process gets to write its summary.
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);

  // The warm-up (the VM behind the registry compiles its lookup path, the
  // allocators settle): a tenth of the run, at least 10,000 calls, at most half.
  const long warmUp = std::min(std::max(target / 10, 10000L), target / 2);
  const Sample* warm = &samples.front();
  for (const Sample& s : samples)
    if (s.calls <= warmUp) warm = &s;
  long clientGrowth = 0, serverGrowth = 0;
  for (const Sample& s : samples) {
    if (s.calls < warm->calls) continue;
    clientGrowth = std::max(clientGrowth, s.client - warm->client);
    serverGrowth = std::max(serverGrowth, s.server - warm->server);
  }
  std::printf("%ld calls in %.1f s (%.0f/s), %ld failed; growth after %ld calls: client %ld KiB, "
              "server %ld KiB (bound %ld KiB%s)\n",
              round.calls(), seconds, round.calls() / seconds, round.failures(), warm->calls, clientGrowth,
              serverGrowth, bound, reportOnly ? ", not enforced" : "");
  const bool flat = reportOnly || (clientGrowth <= bound && serverGrowth <= bound);
  return round.failures() == 0 && flat ? 0 : 1;
}
