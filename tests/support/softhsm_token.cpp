#include "softhsm_token.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace qor::test {

SoftHsmToken::SoftHsmToken() {
  char tmpl[] = "/tmp/qor-softhsm-XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) {
    error_ = "mkdtemp failed";
    return;
  }
  dir_ = tmpl;
  std::filesystem::create_directory(dir_ + "/tokens");
  const std::string conf = dir_ + "/softhsm2.conf";
  std::ofstream(conf) << "directories.tokendir = " << dir_ << "/tokens\n"
                      << "objectstore.backend = file\n"
                      << "log.level = ERROR\n";
  ::setenv("SOFTHSM2_CONF", conf.c_str(), 1);
  const std::string init =
      "softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null";
  if (std::system(init.c_str()) != 0) error_ = "softhsm2-util could not create the token";
}

SoftHsmToken::~SoftHsmToken() {
  std::error_code ignored;
  if (!dir_.empty()) std::filesystem::remove_all(dir_, ignored);
}

}  // namespace qor::test
