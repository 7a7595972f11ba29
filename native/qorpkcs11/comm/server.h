// Server end of the command transport: a background thread that serves one
// client connection at a time, answers version exchanges itself and hands
// every command payload to the processing callback.
#pragma once

#include <cstdint>

extern "C" {

// Turns one request payload into a reply. Returns 0 with a malloc'ed reply
// in *out (freed by the transport after sending) and its length in
// *out_len; any other value means no reply is sent. Returning 2, 10 or 11
// also drops the client's connection.
typedef int (*qorpkcs11_comm_process_fn)(const void* data, int32_t len, void** out,
                                         uint32_t* out_len);

// Starts the server thread on the socket named by server_id. 0, or 1 (already
// started, also after deinit), 5 (null argument), 14 (no thread).
int qorpkcs11_comm_server_init(const char* server_id, qorpkcs11_comm_process_fn process);

// Only reports: the thread serves until the process ends. 0, or 2.
int qorpkcs11_comm_server_deinit(void);

// -1 while a request is being processed, else the time of the last reply
// (0 before the first) in whole seconds plus the milliseconds of that second.
int32_t qorpkcs11_comm_server_getLastUsageTime(void);

}  // extern "C"

namespace qor::comm {

// Internal loops. Receive: 5 bad arguments, 10 peer closed, 12 error.
// Send: 5 bad arguments, 11 error, 12 nothing sent.
class Deadline;
// With a deadline that is set, a receive still short when it passes gives 25.
int server_recv_data(int sock, void* buf, int32_t len, const Deadline* deadline = nullptr);
int server_send_data(int sock, const void* buf, int32_t len);

enum StampKind : int { kStampRequest = 0, kStampResponse = 1 };
void record_time_stamp(int kind);

}  // namespace qor::comm
