// Sanitizer settings of the fuzz programs that host a Java VM: compiled into
// each of them (not taken from a library, where nothing would pull them in).
//
// The VM uses faults on purpose, so AddressSanitizer leaves SIGSEGV to it.
// Allocations above 256 MiB fail, as such allocations can in the 32-bit
// processes this runs in on devices: requests for huge buffers then take the
// failure paths instead of slowing the search down.
extern "C" const char* __asan_default_options() {
  return "handle_segv=0:allow_user_segv_handler=1:allocator_may_return_null=1:max_allocation_size_mb=256:alloc_dealloc_mismatch=0";
}

// What the VM and its native libraries allocate they keep in memory that
// LeakSanitizer does not scan.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libjvm.so\nleak:libjava.so\nleak:libzip.so\nleak:libz.so\n";
}

#include "vm_options.h"

#include <vector>

namespace qor::fuzz {

void leave_segv_to_the_vm(int* argc, char*** argv) {
  static std::vector<char*> args(*argv, *argv + *argc);
  static char flag[] = "-handle_segv=0";
  args.insert(args.begin() + 1, flag);
  args.push_back(nullptr);
  *argc = static_cast<int>(args.size() - 1);
  *argv = args.data();
}

}  // namespace qor::fuzz
