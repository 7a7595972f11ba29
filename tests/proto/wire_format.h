// Hand encoding of protocol-buffer wire bytes, independent of the generated
// code, so tests can compare what the schema writes against what peers expect.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace wire {

enum WireType : std::uint32_t { kVarint = 0, kLengthDelimited = 2 };

inline std::string varint(std::uint64_t value) {
    std::string out;
    while (value >= 0x80) {
        out.push_back(static_cast<char>((value & 0x7F) | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<char>(value));
    return out;
}

inline std::string tag(std::uint32_t number, WireType type) {
    return varint((std::uint64_t{number} << 3) | type);
}

inline std::string varintField(std::uint32_t number, std::uint64_t value) {
    return tag(number, kVarint) + varint(value);
}

inline std::string lengthField(std::uint32_t number, const std::string& payload) {
    return tag(number, kLengthDelimited) + varint(payload.size()) + payload;
}

// "0a 0A0b" -> bytes; spaces are ignored so expectations can be grouped by field.
inline std::string unhex(const char* text) {
    std::string out;
    int high = -1;
    for (; *text != '\0'; ++text) {
        const char c = *text;
        int nibble = -1;
        if (c >= '0' && c <= '9') nibble = c - '0';
        if (c >= 'a' && c <= 'f') nibble = c - 'a' + 10;
        if (c >= 'A' && c <= 'F') nibble = c - 'A' + 10;
        if (nibble < 0) continue;
        if (high < 0) {
            high = nibble;
        } else {
            out.push_back(static_cast<char>((high << 4) | nibble));
            high = -1;
        }
    }
    return out;
}

// Readable form for assertion messages.
inline std::string hex(const std::string& bytes) {
    std::string out;
    char buf[4];
    for (unsigned char b : bytes) {
        std::snprintf(buf, sizeof buf, "%02x", b);
        out += buf;
    }
    return out;
}

}  // namespace wire
