// Pieces every fuzz target shares: the log sink, socket names, and a reader
// that turns the fuzzer's bytes into the small choices a target makes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qor::fuzz {

// Every log line is still formatted (so a format that reads past its
// arguments is caught) but goes nowhere.
void discard_logs();

// An abstract socket name no other process uses: "@qorfuzz-<what>-<pid>".
std::string server_id(const char* what);

// Connects to the abstract socket named by `server_id` (first character
// dropped, full-length address) and returns the descriptor; retries while a
// server thread is still coming up and aborts when it never does.
int connect_to(const std::string& server_id);

// Takes bytes off the front of the input; past the end every read is 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint32_t u32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(byte()) << (8 * i);
    return v;
  }
  // What is left, as one block.
  const uint8_t* rest() const { return data_ + pos_; }
  size_t rest_size() const { return pos_ < size_ ? size_ - pos_ : 0; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace qor::fuzz
