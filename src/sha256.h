#pragma once

#include <string>

namespace reporter {

/// Digest as 64 lower-case hexadecimal digits. `data` may be null when `len` is 0. Any thread;
/// throws only when memory is out.
std::string sha256(const char* data, unsigned int len);

}  // namespace reporter
