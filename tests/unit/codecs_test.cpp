#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "base64.h"
#include "compression.h"

namespace {

using codec = std::string (*)(const char*, unsigned int);

std::string run(codec code, const std::string& bytes) {
    return code(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string random_bytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), std::mt19937());
    return bytes;
}

TEST(codecs, give_the_known_vectors) {
    const std::string abc_deflated("x\xDAKLJ\x06\0\x02M\x01'", 11);
    const std::tuple<codec, std::string, std::string> cases[] = {
        {reporter::base64_encode, "f", "Zg=="},
        {reporter::base64_encode, "fo", "Zm8="},
        {reporter::base64_encode, "\xFB\xFF\xFE", "+//+"},
        {reporter::base64_decode, "Zm\r\n9v Y=m-F_y\n", "foobar"},
        {reporter::base64_decode, "Zm9vY", "foo"},
        {reporter::deflate, "abc", abc_deflated},
        {reporter::inflate, abc_deflated + "more", "abc"},
        {reporter::inflate, "no stream at all", ""},
    };
    for (const auto& [code, input, output] : cases) {
        EXPECT_EQ(run(code, input), output) << input;
    }
}

TEST(codecs, restore_what_they_coded) {
    for (const std::string& bytes : {std::string(), random_bytes(4096), random_bytes(100001),
                                     std::string(4096 * 1030, 'x'), std::string(8 << 20, '\0')}) {
        EXPECT_TRUE(run(reporter::base64_decode, run(reporter::base64_encode, bytes)) == bytes);
        const std::string stream = run(reporter::deflate, bytes);
        EXPECT_TRUE(run(reporter::inflate, stream) == bytes) << bytes.size();
        // Cut off: the checksum, then half of the data.
        EXPECT_TRUE(run(reporter::inflate, stream.substr(0, stream.size() - 4)) == bytes);
        const std::string half = run(reporter::inflate, stream.substr(0, stream.size() / 2));
        EXPECT_EQ(bytes.compare(0, half.size(), half), 0) << bytes.size();
    }
}

}  // namespace
