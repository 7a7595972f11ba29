// The client proxies' reply handling: one exported function, called with
// caller memory the fuzzer sizes, gets the fuzzer's bytes back as its
// OperationResult through the real transport (an in-process server thread
// answers every request with them). No reply may make a proxy crash, read
// past the reply or write past the caller's memory.
//
// Input: the function index, the caller's shape (see Caller), then the
// reply bytes.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "caller.h"
#include "fuzz_common.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/comm/server.h"

// Allocations above 256 MiB fail, as such allocations can in the 32-bit
// processes this runs in on devices: a length from the wire then takes the
// failure path instead of slowing the search down.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=256:alloc_dealloc_mismatch=0";
}

namespace {

std::string gReply;  // written before each call, read by the server thread meanwhile
CK_FUNCTION_LIST_PTR gFunctions = nullptr;

int answer(const void*, int32_t, void** out, uint32_t* out_len) {
  *out = std::malloc(gReply.size() + 1);
  if (!gReply.empty()) std::memcpy(*out, gReply.data(), gReply.size());
  *out_len = static_cast<uint32_t>(gReply.size());
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qor::fuzz::discard_logs();
  const std::string id = qor::fuzz::server_id("replies");
  if (qorpkcs11_comm_server_init(id.c_str(), answer) != 0) std::abort();
  ::close(qor::fuzz::connect_to(id));  // the server thread is up
  if (qorpkcs11_client_init(id.c_str()) != 0) std::abort();
  if (C_GetFunctionList(&gFunctions) != CKR_OK) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qor::fuzz::Input in(data, size);
  const auto& calls = qor::fuzz::proxyCalls();
  const auto& call = calls[in.byte() % calls.size()];
  qor::fuzz::Caller caller(in);
  gReply.assign(reinterpret_cast<const char*>(in.rest()), in.rest_size());
  call.invoke(*gFunctions, caller);
  return 0;
}
