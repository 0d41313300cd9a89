#pragma once

#include <string>

namespace collector {

/// The text as every database takes it: whatever is not UTF-8, and the character 0, becomes U+FFFD.
/// A device's fact may hold any byte, and a report must not stay out for it.
std::string storable(const std::string& text);

}  // namespace collector
