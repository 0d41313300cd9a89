// One mutually authenticated POST and nothing more, to compare the agent's memory with.
// usage: bare_post URL PKI_DIR BODY_FILE
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <curl/curl.h>

namespace {

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: bare_post URL PKI_DIR BODY_FILE\n", stderr);
        return 2;
    }
    const std::string pki = argv[2];
    const std::string body = contents(argv[3]);
    const std::string passphrase = contents(pki + "/client.pem").substr(28, 64);

    curl_global_init(CURL_GLOBAL_ALL);
    CURL* handle = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(handle, CURLOPT_URL, argv[1]);
    curl_easy_setopt(handle, CURLOPT_CAINFO, (pki + "/ca.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_SSLCERT, (pki + "/client.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_SSLKEY, (pki + "/client.key").c_str());
    curl_easy_setopt(handle, CURLOPT_KEYPASSWD, passphrase.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, discard);

    const CURLcode result = curl_easy_perform(handle);
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    std::printf("%s, status %ld\n", curl_easy_strerror(result), status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(handle);
    return result == CURLE_OK ? 0 : 1;
}
