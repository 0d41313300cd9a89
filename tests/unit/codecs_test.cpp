#include <random>

#include "base64.h"
#include "compression.h"
#include "sha256.h"
#include "support/device_root.h"

using namespace test_support;

class codecs : public device_test {};

namespace {

using codec = std::string (*)(const char*, unsigned int);

std::string run(codec code, const std::string& bytes) {
    return code(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string random_bytes(std::size_t size) {
    std::mt19937 source(static_cast<unsigned int>(size));
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(source());
    }
    return bytes;
}

const std::string zero_inside("a\0b", 3);

}  // namespace

TEST_F(codecs, give_the_known_vectors) {
    const std::string abc_deflated("x\xDAKLJ\x06\0\x02M\x01'", 11);
    const struct {
        codec code;
        std::string input;
        std::string output;
    } cases[] = {
        {reporter::base64_encode, "", ""},
        {reporter::base64_encode, "f", "Zg=="},
        {reporter::base64_encode, "fo", "Zm8="},
        {reporter::base64_encode, "foo", "Zm9v"},
        {reporter::base64_encode, zero_inside, "YQBi"},
        {reporter::base64_encode, "\xFB\xFF\xFE\xFF", "+//+/w=="},
        {reporter::base64_decode, "+//+/w==", "\xFB\xFF\xFE\xFF"},
        {reporter::base64_decode, "Zm\r\n9v Y=m-F_y\n", "foobar"},
        {reporter::base64_decode, "Zm9vY", "foo"},
        {reporter::base64_decode, "====", ""},
        {reporter::sha256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {reporter::sha256, "abc",
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {reporter::deflate, "abc", abc_deflated},
        {reporter::inflate, abc_deflated + "more", "abc"},
        {reporter::inflate, "no stream at all", ""},
    };
    for (const auto& known : cases) {
        EXPECT_EQ(run(known.code, known.input), known.output) << known.input;
    }
}

TEST_F(codecs, restore_what_they_coded) {
    for (const std::string& bytes :
         {std::string(), zero_inside, random_bytes(4095), random_bytes(4096), random_bytes(100001),
          std::string(4096 * 1030, 'x'), std::string(8 << 20, '\0')}) {
        const std::string deflated = run(reporter::deflate, bytes);
        EXPECT_TRUE(run(reporter::inflate, deflated) == bytes) << bytes.size();
        const std::string text = run(reporter::base64_encode, bytes);
        EXPECT_EQ(text.size(), (bytes.size() + 2) / 3 * 4);
        EXPECT_TRUE(run(reporter::base64_decode, text) == bytes) << bytes.size();
    }
}

TEST_F(codecs, inflate_what_they_can_of_a_broken_stream) {
    const std::string bytes = random_bytes(9000) + std::string(9000, 'z');
    const std::string deflated = run(reporter::deflate, bytes);
    for (std::size_t cut = 0; cut < deflated.size(); cut += 97) {
        const std::string part = run(reporter::inflate, deflated.substr(0, cut));
        EXPECT_EQ(bytes.compare(0, part.size(), part), 0) << cut;
    }
}

TEST_F(codecs, log_the_encoder_under_the_decoders_name) {
    run(reporter::base64_decode, run(reporter::base64_encode, "f"));
    EXPECT_EQ(recorder.messages(),
              (messages{"I base64_decode: size4", "I base64_decode: reserve"}));
}
