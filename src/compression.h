#pragma once

#include <string>

namespace reporter {

/// zlib stream at level 9. `data` may be null when `len` is 0. Empty only when zlib has no
/// memory. Any thread.
std::string deflate(const char* data, unsigned int len);

/// Bytes of a zlib stream. A damaged one gives what was decoded before the error. Bad input never
/// throws, but may decode to a thousand times its size. Any thread.
std::string inflate(const char* data, unsigned int len);

}  // namespace reporter
