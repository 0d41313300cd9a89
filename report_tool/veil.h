#pragma once

#include <string>
#include <vector>

namespace report_tool {

/// Puts a keyed hash in the place of what identifies a device, so that a text can be given away.
/// The same value always has the same hash, which only this device can tell from the value.
class veil {
public:
    explicit veil(std::string key) : _key(std::move(key)) {}

    /// From now on the value is replaced: six characters and more wherever they stand, a shorter
    /// one as a whole word, and a number shorter than that only behind its name.
    void learn(const std::string& value);
    /// Learns what stands behind the names of the request header's members, of device facts and of
    /// the enrolled identifier, as the configuration and the log show them.
    void learn_from(const std::string& text);

    /// The text without what was learned, and without SHA-256 of contents.
    std::string over(const std::string& text) const;
    std::string hash_of(const std::string& value) const;

private:
    std::string _key;
    std::vector<std::string> _values;  ///< longest first
};

/// The key of this device, which is made where there is none and never leaves the device. Where it
/// cannot be kept, that is said, and the key is another each time. Throws std::runtime_error.
std::string veil_key();

}  // namespace report_tool
