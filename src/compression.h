#pragma once

#include <string>

namespace reporter {

/// zlib stream at level 9. `data` may be null when `len` is 0.
std::string deflate(const char* data, unsigned int len);

/// Bytes of a zlib stream; of a damaged one what was decoded before the error. Never throws for
/// bad input.
std::string inflate(const char* data, unsigned int len);

}  // namespace reporter
