#include "compression.h"
#include "fuzz.h"

void fuzz_one(const std::string& input) {
    const auto size = static_cast<unsigned int>(input.size());
    const std::string inflated = reporter::inflate(input.data(), size);
    assert(inflated.size() <= input.size() * 1032);  // zlib cannot expand further

    // More than the buffers of the codec hold.
    const std::string text = input + input + input;
    const std::string stream = reporter::deflate(text.data(), 3 * size);
    const auto stream_size = static_cast<unsigned int>(stream.size());
    assert(reporter::inflate(stream.data(), stream_size) == text);
    const std::string half = reporter::inflate(stream.data(), stream_size / 2);
    assert(text.compare(0, half.size(), half) == 0);
}
