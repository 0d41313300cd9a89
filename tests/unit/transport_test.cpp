#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>

#include "configuration.h"
#include "http_session.h"
#include "internal/transport/HttpSession.h"
#include "modules/posting.h"
#include "support/device_root.h"

namespace {

// For mallinfo: its successor is younger than the device.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

using namespace test_support;
using namespace tev::transport;

// The header as it was last made longer.
curl_slist* header = nullptr;

class transport : public device_test {
protected:
    HttpSession session{"none://host", 30};
};

}  // namespace

extern "C" curl_slist* curl_slist_append(curl_slist* list, const char* line) {
    static void* const append = dlsym(RTLD_NEXT, "curl_slist_append");
    return header = reinterpret_cast<decltype(&curl_slist_append)>(append)(list, line);
}

TEST_F(transport, repeats_the_header_and_takes_nothing_after_a_failure) {
    session.composeHeader(5);
    session.composeHeader(7);
    std::string lines;
    for (const curl_slist* line = header; line != nullptr; line = line->next) {
        lines += std::string(line->data) + "|";
    }
    EXPECT_EQ(lines,
              "Content-Type: application/json|Content-Length: 5|"
              "Content-Type: application/json|Content-Length: 7|");
    EXPECT_EQ(session.post("{}"), -CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(session.post("{}"), 0);
}

TEST_F(transport, serves_one_request_after_the_other) {
    const std::string file = data_dir() / "file";
    HttpSession reading("file://" + file, 30);
    for (const std::size_t size : {5U, 3U}) {
        write_text(file, std::string(size, 'x'));
        reading.get("");
        EXPECT_EQ(reading.getReplySize(), size);
    }
}

TEST_F(transport, gives_its_memory_back) {
    int early = 0, late = 0;
    for (int i = 0; i <= 100; ++i, recorder.clear()) {
        HttpSession one("none://host", 30);
        one.composeHeader(5);
        unsigned char byte = 0;
        HttpSession::receiveCallback(&byte, 1, 1, &one);
        (i <= 20 ? early : late) = mallinfo().uordblks;
    }
    EXPECT_LT(late - early, 5000);
}

TEST_F(transport, keeps_the_endpoint_of_a_request_that_could_not_begin) {
    using namespace reporter::modules;
    Json::Value settings;
    settings["server_url"] = std::string(9'000'000, '/');
    settings["server_port"] = "1";
    settings["sending_timeout"] = 5000;
    EXPECT_THROW(do_post_request({settings, {}}, "path", ""), reporter::http_session_exception);
    EXPECT_EQ(create_http_session({{}, {}}, "path")->timeout, 1800U);
    remove_http_session("path");
    settings["server_url"] = "none://host";
    settings["sending_timeout"] = 29;
    EXPECT_EQ(create_http_session({settings, {}}, "path")->url, "none://host:1/path");
    EXPECT_EQ(create_http_session({{}, {}}, "path")->timeout, 30U);
}

TEST_F(transport, collects_an_answer_in_blocks_of_512_bytes) {
    unsigned char bytes[4000];
    for (const auto& [size, blocks] : {std::pair(513U, 2U), {511U, 2U}, {1U, 3U}, {4000U, 11U}}) {
        std::fill_n(bytes, size, static_cast<unsigned char>(blocks));
        EXPECT_EQ(HttpSession::receiveCallback(bytes, 1, size, &session), size);
        EXPECT_EQ(malloc_usable_size(const_cast<unsigned char*>(session.getReply())) / 512, blocks);
    }
    EXPECT_EQ(HttpSession::receiveCallback(bytes, 1, 0, &session), 0U);
    EXPECT_EQ(HttpSession::receiveCallback(bytes, 1, SIZE_MAX, &session), 0U);
    EXPECT_EQ(session.getReplySize(), 5025U);
    EXPECT_EQ(session.getReply()[1023] + session.getReply()[1024] + session.getReply()[5024], 16);
}

TEST_F(transport, answers_for_libcurl_until_it_is_ready) {
    CurlLayer& layer = CurlLayer::getInst();
    layer.done();
    EXPECT_EQ(layer.curl_easy_init(), nullptr);
    EXPECT_EQ(layer.curl_easy_setopt(nullptr, CURLOPT_POST, 1L), CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(recorder.messages().back(), "I CURL is not ready");
    EXPECT_EQ(layer.curl_easy_perform(nullptr), CURLE_FAILED_INIT);
    EXPECT_STREQ(layer.curl_easy_strerror(CURLE_OK), "CURLE_FAILED_INIT");
    EXPECT_EQ(layer.curl_slist_append(nullptr, ""), nullptr);
    EXPECT_EQ(&CurlLayer::getInst(), &layer);
    EXPECT_STREQ(layer.curl_easy_strerror(CURLE_OK), "No error");
}
