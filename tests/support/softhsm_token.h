// A temporary SoftHSM2 configuration for one test process.
#pragma once

#include <string>

namespace qor::test {

// SOFTHSM2_CONF pointing at a fresh token directory holding one token:
// label "test", user PIN "1234", SO PIN "5678". Removed again on destruction.
class SoftHsmToken {
 public:
  SoftHsmToken();
  ~SoftHsmToken();
  SoftHsmToken(const SoftHsmToken&) = delete;
  SoftHsmToken& operator=(const SoftHsmToken&) = delete;

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }

 private:
  std::string dir_;
  std::string error_;
};

}  // namespace qor::test
