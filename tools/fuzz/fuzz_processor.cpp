// The serving side's request processor, Generate_Operation_Result_Server,
// with the test module registered in the module registry as a serving
// process has it: fed arbitrary Operation bytes, or one of the 67 wire names
// followed by arbitrary fields (see processor_operation). It must never
// crash, and whatever it answers must be a whole OperationResult.
#include <cstdlib>
#include <string>

#include "fuzz_common.h"
#include "qorpkcs11/server/server.h"
#include "seed_format.h"
#include "served_module.h"
#include "vm_options.h"

namespace {

const qor::test::ServedModule* gServed = nullptr;

// Random bytes are the one output the module fills to whatever length is
// asked, and a slot or mechanism list the module leaves at the count asked
// (an invalid slot) is answered with that many entries: the serving process
// then fills and answers with that much, as the security notes describe.
// Megabytes of it only slow the search down.
bool asks_for_a_large_fill(const std::string& bytes) {
  constexpr uint32_t kLarge = 1u << 20;
  pkcs11::Operation op;
  (void)op.ParsePartialFromString(bytes);  // what parsed is what the server serves
  auto large = [](int32_t n) { return static_cast<uint32_t>(n) > kLarge; };
  return (op.has_c_generaterandom() && large(op.c_generaterandom().ulrandomlen())) ||
         (op.has_c_getmechanismlist() && large(op.c_getmechanismlist().pulcount())) ||
         (op.has_c_getslotlist() && large(op.c_getslotlist().pulcount()));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  qor::fuzz::leave_segv_to_the_vm(argc, argv);
  qor::fuzz::discard_logs();
  static const qor::test::ServedModule served(qor::fuzz::server_id("processor").c_str());
  gServed = &served;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string request = qor::fuzz::processor_operation(data, size);
  if (asks_for_a_large_fill(request)) return -1;
  // Every input meets the same token; a queued slot event keeps a blocking
  // wait from blocking (which it would, by design, for ever).
  gServed->module().resetReady();
  gServed->module().slotEvent(1);

  void* out = nullptr;
  uint32_t outLen = 0xFFFFFFFF;
  if (Generate_Operation_Result_Server(request.data(), static_cast<int32_t>(request.size()), &out,
                                       &outLen) != 0)
    std::abort();
  if (out == nullptr && outLen != 0) std::abort();
  if (outLen != 0) {
    pkcs11::OperationResult result;
    if (!result.ParseFromArray(out, static_cast<int>(outLen))) std::abort();
  }
  std::free(out);
  return 0;
}
