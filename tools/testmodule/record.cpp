// The call log, the script queues, and the text form of arguments.
#include "record.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <utility>

#include "token.h"

namespace qor::tm {
namespace {

constexpr size_t kShownBytes = 4096;
constexpr CK_ULONG kShownAttributes = 256;

struct Record {
  uint64_t id;
  std::string function, text;
  std::vector<std::pair<std::string, std::string>> args;
  int64_t rv = -1;
};

struct Log {
  std::vector<Record> records;
  uint64_t nextId = 1;
  std::map<std::string, std::deque<Script>> scripts;
};

Log& log() {
  static Log l;
  return l;
}

// Read without the lock so that a call skips building its text when off.
std::atomic<bool> gRecording{true};

const char* const kFunctionNames[] = {
#define QORTM_NAME(name, params, args) #name,
    QOR_PKCS11_FUNCTIONS(QORTM_NAME)
#undef QORTM_NAME
};

bool startsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

// pul...Len and pulCount carry a value in; pulSize and pulObjectCount only out.
bool isInOutLength(const std::string& name) {
  return startsWith(name, "pul") && name != "pulSize" && name != "pulObjectCount";
}

bool readUlong(const void* p, CK_ULONG& v) { return p != nullptr && peek(p, &v, sizeof v); }

std::string templateText(const CK_ATTRIBUTE* tpl, CK_ULONG count) {
  if (tpl == nullptr) return "null";
  std::string s = "[";
  for (CK_ULONG i = 0; i < count && i < kShownAttributes; ++i) {
    CK_ATTRIBUTE a;
    if (i != 0) s += ", ";
    if (!peek(&tpl[i], &a, sizeof a)) return s + "<unreadable>]";
    s += "{type=" + numberText(a.type, true) + ", pValue=" + bytesText(a.pValue, a.ulValueLen) +
         ", ulValueLen=" + numberText(a.ulValueLen, false) + "}";
  }
  return s + (count > kShownAttributes ? ", ...]" : "]");
}

std::string initArgsText(const void* p) {
  CK_C_INITIALIZE_ARGS a;
  if (!peek(p, &a, sizeof a)) return "<unreadable>";
  auto fn = [](auto f) { return f != nullptr ? "nonnull" : "null"; };
  return std::string("{CreateMutex=") + fn(a.CreateMutex) + ", DestroyMutex=" + fn(a.DestroyMutex) +
         ", LockMutex=" + fn(a.LockMutex) + ", UnlockMutex=" + fn(a.UnlockMutex) +
         ", flags=" + numberText(a.flags, true) + ", pReserved=" + pointerText(a.pReserved) + "}";
}

Record* findRecord(uint64_t id) {
  auto& r = log().records;
  auto it = std::lower_bound(r.begin(), r.end(), id, [](const Record& rec, uint64_t v) { return rec.id < v; });
  return it != r.end() && it->id == id ? &*it : nullptr;
}

const Record* recordAt(int index) {
  const auto& r = log().records;
  return index >= 0 && static_cast<size_t>(index) < r.size() ? &r[static_cast<size_t>(index)] : nullptr;
}

// Where process_vm_readv/writev do not exist (qemu's user-mode emulator), a
// pipe gives the same checked copy: write() and read() answer EFAULT where a
// plain memcpy would fault. Chunks of PIPE_BUF never block.
bool pipeCopy(void* to, const void* from, size_t n) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  auto src = static_cast<const char*>(from);
  auto dst = static_cast<char*>(to);
  bool ok = true;
  for (size_t done = 0; ok && done < n;) {
    const size_t chunk = std::min<size_t>(n - done, 4096);
    ok = write(fds[1], src + done, chunk) == static_cast<ssize_t>(chunk) &&
         read(fds[0], dst + done, chunk) == static_cast<ssize_t>(chunk);
    done += chunk;
  }
  close(fds[0]);
  close(fds[1]);
  return ok;
}

bool checkedCopy(ssize_t copied, void* to, const void* from, size_t n) {
  if (copied < 0 && errno == ENOSYS) return pipeCopy(to, from, n);
  return copied == static_cast<ssize_t>(n);
}

}  // namespace

bool peek(const void* from, void* to, size_t n) {
  if (n == 0) return true;
  if (from == nullptr) return false;
  iovec local{to, n};
  iovec remote{const_cast<void*>(from), n};
  return checkedCopy(process_vm_readv(getpid(), &local, 1, &remote, 1, 0), to, from, n);
}

bool poke(void* to, const void* from, size_t n) {
  if (n == 0) return true;
  if (to == nullptr) return false;
  iovec local{const_cast<void*>(from), n};
  iovec remote{to, n};
  return checkedCopy(process_vm_writev(getpid(), &local, 1, &remote, 1, 0), to, from, n);
}

std::string numberText(CK_ULONG v, bool hex) {
  char b[16];
  std::snprintf(b, sizeof b, hex ? "0x%x" : "%u", static_cast<unsigned>(v));
  return b;
}

std::string pointerText(const void* p) { return p != nullptr ? "nonnull" : "null"; }

std::string bytesText(const void* p, size_t n) {
  if (p == nullptr) return "null";
  const size_t shown = std::min(n, kShownBytes);
  Bytes b(shown);
  if (!peek(p, b.data(), shown)) return "<unreadable>";
  static const char digits[] = "0123456789abcdef";
  std::string s = "[";
  for (CK_BYTE c : b) {
    s += digits[c >> 4];
    s += digits[c & 15];
  }
  return s + (n > shown ? "...]" : "]");
}

ArgNames::ArgNames(const char* list) {
  std::string name;
  for (const char* c = list;; ++c) {
    if (*c == ',' || *c == ')' || *c == '\0') {
      if (!name.empty()) names.push_back(name);
      name.clear();
      if (*c != ',') {
        if (*c == '\0') break;
        continue;
      }
    } else if (*c != '(' && *c != ' ') {
      name += *c;
    }
  }
}

Call::Call(const char* function, const ArgNames& names, const std::vector<Arg>& args) {
  Record rec{0, function, function, {}, -1};
  const bool recording = gRecording.load();
  const bool attributesOut = std::strcmp(function, "C_GetAttributeValue") == 0;
  for (size_t i = 0; i < args.size(); ++i) {
    const Arg& a = args[i];
    const Arg* next = i + 1 < args.size() ? &args[i + 1] : nullptr;
    const std::string name = i < names.names.size() ? names.names[i] : "?";
    void* ptr = const_cast<void*>(a.ptr);
    std::string key = name, value;
    switch (a.kind) {
      case Arg::Ulong:
        value = numberText(a.value, name == "flags" || name == "type");
        break;
      case Arg::Buffer: {
        // Its length follows as a CK_ULONG, or as the capacity behind a length
        // pointer (an output buffer); the label of C_InitToken is 32 bytes.
        CK_ULONG len = 32;
        bool known = true;
        if (next != nullptr && next->kind == Arg::Ulong) len = next->value;
        if (next != nullptr && next->kind == Arg::UlongPtr) {
          known = readUlong(next->ptr, len);
          targets_.push_back({Target::Output, ptr, known ? len : 0});
        } else if (name == "RandomData") {
          targets_.push_back({Target::Output, ptr, len});
        }
        if (recording) value = known ? bytesText(ptr, len) : pointerText(ptr);
        break;
      }
      case Arg::UlongPtr: {
        CK_ULONG v = 0;
        if (isInOutLength(name)) {
          if (ptr == nullptr) {
            value = "null";
          } else if (readUlong(ptr, v)) {
            key = "*" + name;
            value = numberText(v, false);
          } else {
            value = "<unreadable>";
          }
          targets_.push_back({name == "pulCount" ? Target::Count : Target::Length, ptr, 1});
        } else {
          value = pointerText(ptr);
          // Handle outputs hold one value, or as many as the count that follows.
          size_t cap = 1;
          if (next != nullptr && next->kind == Arg::Ulong) cap = next->value;
          if (next != nullptr && next->kind == Arg::UlongPtr && i + 1 < names.names.size() &&
              isInOutLength(names.names[i + 1]))
            cap = readUlong(next->ptr, v) ? v : 0;
          targets_.push_back({name == "pulSize" ? Target::Length
                              : name == "pulObjectCount" ? Target::Count
                                                         : Target::Values,
                              ptr, cap});
        }
        break;
      }
      case Arg::Template: {
        const CK_ULONG count = next != nullptr && next->kind == Arg::Ulong ? next->value : 0;
        if (recording) value = templateText(static_cast<const CK_ATTRIBUTE*>(a.ptr), count);
        if (attributesOut) targets_.push_back({Target::Attributes, ptr, count});
        break;
      }
      case Arg::Mechanism:
        if (recording) value = mechanismText(static_cast<const CK_MECHANISM*>(a.ptr));
        break;
      case Arg::Pointer:
        if (recording) value = name == "pInitArgs" && ptr != nullptr ? initArgsText(ptr) : pointerText(ptr);
        break;
      case Arg::Struct:
        if (recording) value = bytesText(ptr, a.size);
        targets_.push_back({Target::Output, ptr, a.size});
        break;
    }
    if (recording) {
      rec.text += (i == 0 ? "(" : ", ") + key + "=" + value;
      rec.args.emplace_back(key, std::move(value));
    }
  }
  rec.text += args.empty() ? "()" : ")";

  std::lock_guard<std::mutex> lock(gMutex);
  Log& l = log();
  auto queued = l.scripts.find(function);
  if (queued != l.scripts.end() && !queued->second.empty()) {
    script_ = std::move(queued->second.front());
    queued->second.pop_front();
  }
  if (recording) {
    id_ = rec.id = l.nextId++;
    l.records.push_back(std::move(rec));
  }
}

CK_RV Call::answerFromScript() const {
  const Script& s = *script_;
  size_t nextValue = 0;
  auto put = [](void* p, int64_t v) {
    const CK_ULONG u = static_cast<CK_ULONG>(v);
    if (p != nullptr && v >= 0) std::memcpy(p, &u, sizeof u);
  };
  for (const Target& t : targets_) {
    if (t.ptr == nullptr) continue;
    switch (t.kind) {
      case Target::Output:
        if (s.output && !s.output->empty()) std::memcpy(t.ptr, s.output->data(), std::min(t.cap, s.output->size()));
        break;
      case Target::Length:
        put(t.ptr, s.len);
        break;
      case Target::Count:
        put(t.ptr, s.count);
        break;
      case Target::Values: {
        const size_t n = std::min(t.cap, s.values.size() - nextValue);
        if (n != 0) std::memcpy(t.ptr, &s.values[nextValue], n * sizeof(CK_ULONG));
        nextValue += n;
        break;
      }
      case Target::Attributes:
        for (size_t i = 0; i < t.cap; ++i) {
          CK_ATTRIBUTE& a = static_cast<CK_ATTRIBUTE*>(t.ptr)[i];
          if (s.output && !s.output->empty() && a.pValue != nullptr)
            std::memcpy(a.pValue, s.output->data(), std::min<size_t>(a.ulValueLen, s.output->size()));
          if (i < s.values.size()) a.ulValueLen = s.values[i];
          else if (s.len >= 0) a.ulValueLen = static_cast<CK_ULONG>(s.len);
        }
        break;
    }
  }
  return s.rv;
}

void Call::finish(CK_RV rv) const {
  if (id_ == 0) return;
  std::lock_guard<std::mutex> lock(gMutex);
  if (Record* r = findRecord(id_)) r->rv = rv;
}

void resetLog() {
  clearCalls();
  log().scripts.clear();
  gRecording = true;
}

void clearCalls() { log().records.clear(); }

bool isFunctionName(const std::string& name) {
  return std::find(std::begin(kFunctionNames), std::end(kFunctionNames), name) != std::end(kFunctionNames);
}

void queueScript(const std::string& name, Script script) { log().scripts[name].push_back(std::move(script)); }

void setRecording(bool on) { gRecording = on; }

int callCount() { return static_cast<int>(log().records.size()); }

const std::string* callText(int index) {
  const Record* r = recordAt(index);
  return r != nullptr ? &r->text : nullptr;
}

const std::string* callName(int index) {
  const Record* r = recordAt(index);
  return r != nullptr ? &r->function : nullptr;
}

const std::string* callArg(int index, const std::string& arg) {
  const Record* r = recordAt(index);
  if (r == nullptr) return nullptr;
  for (const auto& a : r->args)
    if (a.first == arg || a.first == "*" + arg) return &a.second;
  return nullptr;
}

int64_t callRv(int index) {
  const Record* r = recordAt(index);
  return r != nullptr ? r->rv : -1;
}

int lastCall(const std::string& name) {
  const auto& r = log().records;
  for (size_t i = r.size(); i-- > 0;)
    if (r[i].function == name) return static_cast<int>(i);
  return -1;
}

}  // namespace qor::tm
