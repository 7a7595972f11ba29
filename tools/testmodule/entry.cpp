// The 68 entry points: each records its call, answers from a queued script
// or from the token, and stores its return value. Plus the exported
// C_GetFunctionList and control functions.
#include <algorithm>
#include <cstring>
#include <new>

#include "impl.h"
#include "record.h"
#include "testmodule_control.h"
#include "token.h"

namespace qor::tm {
namespace {

template <class Body>
CK_RV run(const Call& call, Body body) {
  CK_RV rv;
  if (call.scripted()) {
    rv = call.answerFromScript();
  } else {
    std::unique_lock<std::mutex> lock(gMutex);
    heldLock() = &lock;
    try {
      rv = body();
    } catch (const std::bad_alloc&) {
      rv = CKR_HOST_MEMORY;
    } catch (...) {
      rv = CKR_GENERAL_ERROR;
    }
    heldLock() = nullptr;
  }
  call.finish(rv);
  return rv;
}

#define QORTM_ENTRY(name, params, args)                   \
  CK_RV entry_##name params {                             \
    static const ArgNames names(#args);                   \
    const Call call(#name, names, makeArgs args);         \
    return run(call, [&] { return impl::name args; });    \
  }
QOR_PKCS11_FUNCTIONS(QORTM_ENTRY)
#undef QORTM_ENTRY

int copyOut(const std::string* s, char* buf, size_t buflen) {
  if (s == nullptr) return -1;
  if (buf != nullptr && buflen != 0) {
    const size_t n = std::min(s->size(), buflen - 1);
    std::memcpy(buf, s->data(), n);
    buf[n] = '\0';
  }
  return static_cast<int>(s->size());
}

}  // namespace

CK_FUNCTION_LIST* functionList() {
#define QORTM_MEMBER(name, params, args) entry_##name,
  static CK_FUNCTION_LIST list = {{2, 20}, QOR_PKCS11_FUNCTIONS(QORTM_MEMBER)};
#undef QORTM_MEMBER
  return &list;
}

}  // namespace qor::tm

using namespace qor::tm;

extern "C" {

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) { return entry_C_GetFunctionList(ppFunctionList); }

void qortm_reset(void) {
  std::lock_guard<std::mutex> lock(gMutex);
  resetToken(false);
  resetLog();
}

void qortm_reset_ready(void) {
  std::lock_guard<std::mutex> lock(gMutex);
  resetToken(true);
  resetLog();
}

void qortm_clear_calls(void) {
  std::lock_guard<std::mutex> lock(gMutex);
  clearCalls();
}

void qortm_set_recording(int on) {
  std::lock_guard<std::mutex> lock(gMutex);
  setRecording(on != 0);
}

int qortm_call_count(void) {
  std::lock_guard<std::mutex> lock(gMutex);
  return callCount();
}

int qortm_call_text(int index, char* buf, size_t buflen) {
  std::lock_guard<std::mutex> lock(gMutex);
  return copyOut(callText(index), buf, buflen);
}

int qortm_call_name(int index, char* buf, size_t buflen) {
  std::lock_guard<std::mutex> lock(gMutex);
  return copyOut(callName(index), buf, buflen);
}

int qortm_call_arg(int index, const char* arg, char* buf, size_t buflen) {
  if (arg == nullptr) return -1;
  std::lock_guard<std::mutex> lock(gMutex);
  return copyOut(callArg(index, arg), buf, buflen);
}

int64_t qortm_call_rv(int index) {
  std::lock_guard<std::mutex> lock(gMutex);
  return callRv(index);
}

int qortm_last_call(const char* name) {
  if (name == nullptr) return -1;
  std::lock_guard<std::mutex> lock(gMutex);
  return lastCall(name);
}

int qortm_script(const char* name, CK_RV rv, const uint8_t* output, size_t outputLen, int64_t lenValue,
                 int64_t countValue, const CK_ULONG* values, size_t valueCount) {
  if (name == nullptr || !isFunctionName(name) || (values == nullptr && valueCount != 0)) return -1;
  Script s;
  s.rv = rv;
  if (output != nullptr) s.output = Bytes(output, output + outputLen);
  s.len = lenValue;
  s.count = countValue;
  if (valueCount != 0) s.values.assign(values, values + valueCount);
  std::lock_guard<std::mutex> lock(gMutex);
  queueScript(name, std::move(s));
  return 0;
}

void qortm_slot_event(CK_SLOT_ID slot) {
  std::lock_guard<std::mutex> lock(gMutex);
  token().events.push_back(slot);
  slotEvent().notify_all();
}

CK_FUNCTION_LIST_PTR qortm_function_list(void) { return functionList(); }

}  // extern "C"
