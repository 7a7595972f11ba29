// For the fuzz programs that host a Java VM (see vm_options.cpp).
#pragma once

namespace qor::fuzz {

// Adds -handle_segv=0 to libFuzzer's flags: its own SIGSEGV handler would
// take the VM's deliberate faults for crashes. Call from LLVMFuzzerInitialize.
void leave_segv_to_the_vm(int* argc, char*** argv);

}  // namespace qor::fuzz
