// Whether the request being served gets the extended calls: it asked for
// them and this side serves them. A request without the marker is served
// exactly as deployed peers expect.
#pragma once

#include "qorpkcs11/protocol/extensions.h"

namespace qor::server {

bool extended();

using protocol::Kept;

// Whether this request keeps a difference the serving side keeps for
// deployed clients.
template <protocol::Kept difference>
bool keeps() {
  static_assert(protocol::keptBy(difference) == protocol::End::kServer, "kept by the client");
  return !extended();
}

// Off only in tests that stand in for a deployed server, which keeps the
// marker as an unknown field and serves the request as before.
void serve_extensions(bool on);

}  // namespace qor::server
