// Posts reports as fast as the answers come, each request by a connection of its own, as agents do.
// No two requests have a report or, nearly, a device in common. PKI_DIR/client.key is not
// encrypted, as opening it would take longer than the rest.
//
// usage: post_reports URL PKI_DIR SECONDS CLIENTS REPORTS
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>

#include "base64.h"
#include "compression.h"
#include "sha256.h"

namespace {

using seconds = std::chrono::duration<double>;
using std::chrono::steady_clock;

constexpr unsigned CONTENT_SIZE = 1024;

std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

/// What all clients share.
struct load {
    std::string url;
    std::string pki;
    steady_clock::time_point end;
    int reports = 0;
    std::mutex mutex;  ///< guards what follows
    std::vector<double> times;
    unsigned long failed = 0;
};

/// Makes the bodies of one client's requests.
class request_maker {
public:
    explicit request_maker(int reports) : _reports(reports), _random(std::random_device()()) {
        std::string bytes(CONTENT_SIZE, '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(_random()); });
        const std::string deflated = reporter::deflate(bytes.data(), CONTENT_SIZE);
        _members =
            R"("module":7,"type":1,"aggregationid":0,"count":1,"first_time":1,"last_time":2,)"
            R"("size":1024,"encoding":"deflate+base64","SHA256":")" +
            reporter::sha256(bytes.data(), CONTENT_SIZE) + R"(","content":")" +
            reporter::base64_encode(deflated.data(), static_cast<unsigned>(deflated.size())) + '"';
    }

    std::string next() {
        const std::string store = std::to_string(_random()) + std::to_string(_random());
        std::string body =
            R"({"header":{"ver":"1.2.0","datetime":"2026-11-24T21:05:59","config_ver":"1","DUID":"D)" +
            std::to_string(_random() % 10'000'000) +
            R"(","vendor":"V","manufacturer":"M","product_type":"TV","DTV_type":"DVB",)"
            R"("sw_version_model":"S","sw_version":"1","platform_name":"P","tizen_version":"6.5"},"body":[)";
        for (int i = 0; i < _reports; ++i) {
            body += (i == 0 ? "{" : ",{") + _members + R"(,"_ID":1,"uid":")" + store + "-" +
                    std::to_string(i) + "\"}";
        }
        return body + "]}";
    }

private:
    int _reports;
    std::mt19937_64 _random;
    std::string _members;
};

CURL* make_handle(const load& shared, curl_slist* headers) {
    CURL* handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, shared.url.c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, (shared.pki + "/ca.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_SSLCERT, (shared.pki + "/client.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_SSLKEY, (shared.pki + "/client.key").c_str());
    curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, discard);
    return handle;
}

void post_until_end(load& shared) {
    request_maker maker(shared.reports);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    CURL* handle = make_handle(shared, headers);
    while (steady_clock::now() < shared.end) {
        const std::string body = maker.next();
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        const auto begin = steady_clock::now();
        const CURLcode result = curl_easy_perform(handle);
        const seconds taken = steady_clock::now() - begin;
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        const std::lock_guard<std::mutex> lock(shared.mutex);
        shared.times.push_back(taken.count());
        shared.failed += result != CURLE_OK || status != 200 ? 1 : 0;
    }
    curl_easy_cleanup(handle);
    curl_slist_free_all(headers);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fputs("usage: post_reports URL PKI_DIR SECONDS CLIENTS REPORTS\n", stderr);
        return 2;
    }
    curl_global_init(CURL_GLOBAL_ALL);
    load shared;
    shared.url = argv[1];
    shared.pki = argv[2];
    shared.reports = std::atoi(argv[5]);
    const auto begin = steady_clock::now();
    shared.end = begin + std::chrono::seconds(std::atoi(argv[3]));
    std::vector<std::thread> clients(std::stoul(argv[4]));
    for (std::thread& client : clients) {
        client = std::thread([&shared] { post_until_end(shared); });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    const seconds all = steady_clock::now() - begin;
    std::vector<double>& times = shared.times;
    std::sort(times.begin(), times.end());
    if (times.empty()) {
        return 1;
    }
    std::printf("%.0f %.1f %.1f %lu\n", static_cast<double>(times.size()) / all.count(),
                1000 * times[times.size() / 2], 1000 * times[times.size() * 99 / 100],
                shared.failed);
    return 0;
}
