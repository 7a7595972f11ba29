// How the fuzzers read their inputs, and the inverse the seed generator
// uses to write them: one place for each input layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qor::fuzz {

// The caller shape of every reply seed (see Caller): 8 input bytes, a
// 16-byte output buffer, 4 list entries, 2 attributes of 8 bytes.
extern const std::string kDefaultShape;

// The 67 wire names the processor dispatches, in its order.
const std::vector<std::string>& wireNames();

// Processor input: a first byte below the number of wire names picks that
// name and the rest follows the name field as the Operation's other fields;
// any other first byte makes the rest the whole Operation.
std::string processor_operation(const uint8_t* data, size_t size);
std::string processor_named(size_t nameIndex, const std::string& fields);
std::string processor_raw(const std::string& operation);
// An Operation's bytes without its leading name field.
std::string without_name(const std::string& operation);

// libFuzzer dictionaries: names, name fields and field tags.
std::string processor_dictionary();
std::string replies_dictionary();

}  // namespace qor::fuzz
