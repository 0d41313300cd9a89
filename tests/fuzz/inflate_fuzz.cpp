#include "compression.h"
#include "fuzz.h"

void fuzz_one(const std::string& input) {
    const auto size = static_cast<unsigned int>(input.size());
    const std::string inflated = reporter::inflate(input.data(), size);
    assert(inflated.size() <= input.size() * 1032);  // zlib cannot expand further

    const std::string stream = reporter::deflate(input.data(), size);
    const auto stream_size = static_cast<unsigned int>(stream.size());
    assert(reporter::inflate(stream.data(), stream_size) == input);
    const std::string half = reporter::inflate(stream.data(), stream_size / 2);
    assert(input.compare(0, half.size(), half) == 0);
}
