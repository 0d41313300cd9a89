#include "base64.h"

#include <algorithm>
#include <cctype>

#include "fuzz.h"

void fuzz_one(const std::string& input) {
    const auto size = static_cast<unsigned int>(input.size());
    const auto digits = std::count_if(input.begin(), input.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '+' || c == '/';
    });
    const std::string decoded = reporter::base64_decode(input.data(), size);
    assert(decoded.size() == static_cast<std::size_t>(digits) * 6 / 8);

    const std::string encoded = reporter::base64_encode(input.data(), size);
    const auto encoded_size = static_cast<unsigned int>(encoded.size());
    assert(encoded.size() == (input.size() + 2) / 3 * 4);
    assert(reporter::base64_decode(encoded.data(), encoded_size) == input);
}
