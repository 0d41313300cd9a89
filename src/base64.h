#pragma once

#include <string>

namespace reporter {

/// Standard alphabet, padded. `data` may be null when `len` is 0.
std::string base64_encode(const char* data, unsigned int len);

/// Skips every character outside the alphabet, padding included; incomplete trailing bits are
/// dropped. Takes any input.
std::string base64_decode(const char* data, unsigned int len);

}  // namespace reporter
