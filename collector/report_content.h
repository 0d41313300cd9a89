#pragma once

#include <cstddef>
#include <string>

namespace collector {

/// The bytes that the content of a report stands for: Base64 of a zlib stream of so many bytes.
/// Throws malformed_request.
std::string decoded_content(const std::string& base64, std::size_t size);

/// SHA-256 of the bytes, as the agent writes it.
std::string sha256_of(const std::string& bytes);

}  // namespace collector
