// The bridge tests' SoftHSM2 token reached the way an app reaches a token:
// a serving process of its own (a Java VM, libqorbridge.so registered under
// the socket name, the transport server) and, in the test process, this
// library's client proxies connected to it.
#pragma once

#include <string>

#include "token.h"

namespace qor::test {

struct ViaRemoting {
  using Abi = abi::Target;
  // Starts the serving process (once per test process; it dies with it) and
  // connects the client to it.
  static Abi::CK_FUNCTION_LIST* open();
  // Set before the first open: the serving process ignores the extended
  // protocol's marker, as a deployed server does.
  static inline bool standInForDeployed = false;
  // How the serving process stands, for a failure message: still running,
  // or how it ended (a set-up failure exits 3 with its reason on stderr).
  static std::string serverState();
};

}  // namespace qor::test
