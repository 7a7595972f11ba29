// C++ handle on the test module for tests: loads the library with dlopen
// (RTLD_LAZY | RTLD_LOCAL; a second dlopen of the same path elsewhere in the
// process, e.g. by the module registry, shares the same state) and wraps the
// control functions of testmodule_control.h.
//
//   qor::TestModule tm(QOR_TESTMODULE_PATH);
//   tm.resetReady();
//   CK_FUNCTION_LIST* f = tm.functions();
//   tm.script("C_Sign", CKR_OK, {}, 300);   // untouched buffer, length 300
//   ... f->C_Sign(...) ...
//   EXPECT_EQ("C_Sign(hSession=1, ...)", tm.call(tm.last("C_Sign")));
#ifndef QOR_TESTMODULE_H
#define QOR_TESTMODULE_H

#include <dlfcn.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testmodule_control.h"

namespace qor {

class TestModule {
 public:
  using Bytes = std::vector<uint8_t>;

  explicit TestModule(const char* path) : handle_(dlopen(path, RTLD_LAZY | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
      const char* why = dlerror();
      error_ = why != nullptr ? why : "dlopen failed";
      return;
    }
#define QORTM_RESOLVE(ret, name, params)                                      \
  name##_ = reinterpret_cast<ret(*) params>(dlsym(handle_, #name));          \
  if (name##_ == nullptr) error_ = "missing " #name;
    QORTM_CONTROL_FUNCTIONS(QORTM_RESOLVE)
#undef QORTM_RESOLVE
  }
  ~TestModule() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  TestModule(const TestModule&) = delete;
  TestModule& operator=(const TestModule&) = delete;

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  void* handle() const { return handle_; }

  CK_FUNCTION_LIST* functions() const { return qortm_function_list_(); }
  void reset() const { qortm_reset_(); }
  void resetReady() const { qortm_reset_ready_(); }
  void clearCalls() const { qortm_clear_calls_(); }
  void setRecording(bool on) const { qortm_set_recording_(on ? 1 : 0); }
  void slotEvent(CK_SLOT_ID slot) const { qortm_slot_event_(slot); }

  int count() const { return qortm_call_count_(); }
  std::string call(int i) const { return fetch([&](char* b, size_t n) { return qortm_call_text_(i, b, n); }); }
  std::string name(int i) const { return fetch([&](char* b, size_t n) { return qortm_call_name_(i, b, n); }); }
  // The value text of one argument ("pData" or "pulSignatureLen"); "" if absent.
  std::string arg(int i, const char* arg) const {
    return fetch([&](char* b, size_t n) { return qortm_call_arg_(i, arg, b, n); });
  }
  int64_t rv(int i) const { return qortm_call_rv_(i); }
  int last(const char* name) const { return qortm_last_call_(name); }
  std::vector<std::string> calls() const {
    std::vector<std::string> all;
    for (int i = 0, n = count(); i < n; ++i) all.push_back(call(i));
    return all;
  }

  // Queues the answer of the next call of `name`; see testmodule_control.h.
  bool script(const char* name, CK_RV rv, std::optional<Bytes> output = std::nullopt, int64_t len = -1,
              int64_t count = -1, const std::vector<CK_ULONG>& values = {}) const {
    return qortm_script_(name, rv, output ? output->data() : nullptr, output ? output->size() : 0, len,
                         count, values.data(), values.size()) == 0;
  }

 private:
  template <class F>
  static std::string fetch(F get) {
    int n = get(nullptr, 0);
    if (n < 0) return {};
    std::string s(static_cast<size_t>(n) + 1, '\0');
    get(s.data(), s.size());
    s.resize(static_cast<size_t>(n));
    return s;
  }

  void* handle_;
  std::string error_;
#define QORTM_POINTER(ret, name, params) ret(*name##_) params = nullptr;
  QORTM_CONTROL_FUNCTIONS(QORTM_POINTER)
#undef QORTM_POINTER
};

}  // namespace qor

#endif  // QOR_TESTMODULE_H
