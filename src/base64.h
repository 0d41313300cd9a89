#pragma once

#include <string>

namespace reporter {

/// Standard alphabet, padded, without line breaks. `data` may be null when `len` is 0. Any thread.
std::string base64_encode(const char* data, unsigned int len);

/// Skips every character outside the alphabet, padding included, and drops incomplete trailing
/// bits. So any input decodes to something. Any thread.
std::string base64_decode(const char* data, unsigned int len);

}  // namespace reporter
