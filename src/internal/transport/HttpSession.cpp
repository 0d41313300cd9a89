#include "internal/transport/HttpSession.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "internal/transport/InterruptibleSockets.h"
#include "internal/transport/TlsCallbacks.h"
#include "logging.h"

namespace tev::transport {
namespace {

std::atomic<bool> interruptSignal{false};

bool isHttps(const std::string& url) {
    return url.compare(0, 8, "https://") == 0;
}

double secondsBetween(std::chrono::system_clock::time_point begin,
                      std::chrono::system_clock::time_point end) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin);
    return static_cast<double>(elapsed.count()) * 1e-9;
}

}  // namespace

void setInterruptSignal() {
    interruptSignal = true;
    InterruptibleSockets::getInst().interrupt();
}

HttpSession::HttpSession(const std::string& address) : url(address), layer(&CurlLayer::getInst()) {}

// It delegates so that the destructor cleans up when an option cannot be set.
HttpSession::HttpSession(const std::string& address, long timeout) : HttpSession(address) {
    REPORTER_INFO("Curl easy init");
    curl = layer->curl_easy_init();
    if (curl == nullptr) {
        busy = true;
        return;
    }
    REPORTER_INFO("curlHandler not NULL");
    busy = true;
    setTransferOptions(timeout);
    setInterruptOptions();
    if (isHttps(url)) {
        setTlsOptions();
        REPORTER_INFO("use_ssl/set finish");
    }
    busy = false;
}

HttpSession::~HttpSession() {
    if (curl != nullptr) {
        layer->curl_easy_cleanup(curl);
    }
    std::free(reply);
    layer->curl_slist_free_all(headers);
}

template <typename T>
void HttpSession::setOption(CURLoption option, T value, const char* label) {
    const CURLcode code = layer->curl_easy_setopt<T>(curl, option, value);
    if (code != CURLE_OK) {
        throw std::domain_error(std::string(label) + layer->curl_easy_strerror(code));
    }
}

// Kept: the numbers in these labels are part of the texts that are logged, here and below.
void HttpSession::setTransferOptions(long timeout) {
    setOption(CURLOPT_URL, url.c_str(), "106 : CURLOPT_URL ! ");
    setOption(CURLOPT_TIMEOUT, timeout, "107 : CURLOPT_TIMEOUT ! ");
    setOption<TransferCallback>(CURLOPT_WRITEFUNCTION, receiveCallback,
                                "108 : CURLOPT_WRITEFUNCTION ! ");
    setOption<TransferCallback>(CURLOPT_READFUNCTION, sendCallback,
                                "109 : CURLOPT_READFUNCTION ! ");
    setOption(CURLOPT_WRITEDATA, this, "110 : CURLOPT_WRITEDATA ! ");
    setOption(CURLOPT_READDATA, this, "111 : CURLOPT_READDATA ! ");
    setOption(CURLOPT_NOPROGRESS, 1L, "112 : CURLOPT_NOPROGRESS ! ");
    setOption(CURLOPT_NOSIGNAL, 1L, "116 : CURLOPT_NOSIGNAL ! ");
}

// Trust and identity come from sslctxfun alone: libcurl's own files and directories are switched
// off.
void HttpSession::setTlsOptions() {
    const char* const none = nullptr;
    setOption(CURLOPT_USE_SSL, CURLUSESSL_ALL, "120 : CURLOPT_USE_SSL ! ");
    setOption<SslContextCallback>(CURLOPT_SSL_CTX_FUNCTION, sslctxfun,
                                  "121 : CURLOPT_SSL_CTX_FUNCTION ! ");
    setOption(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2),
              "122 : CURLOPT_SSLVERSION ! ");
    setOption(CURLOPT_SSL_CIPHER_LIST, cipherList, "123 : CURLOPT_SSL_CIPHER_LIST ! ");
    setOption(CURLOPT_SSL_CTX_DATA, this, "131 : CURLOPT_SSL_CTX_DATA ! ");
    setOption(CURLOPT_CAINFO, none, "137 : CURLOPT_CAINFO ! ");
    setOption(CURLOPT_CAPATH, none, "138 : CURLOPT_CAPATH ! ");
    setOption(CURLOPT_SSLCERT, none, "139 : CURLOPT_SSLCERT ! ");
    setOption(CURLOPT_SSLKEY, none, "140 : CURLOPT_SSLKEY ! ");
    setOption(CURLOPT_SSL_VERIFYPEER, 1L, "141 : CURLOPT_SSL_VERIFYPEER ! ");
    setOption(CURLOPT_SSL_VERIFYHOST, 2L, "142 : CURLOPT_SSL_VERIFYHOST ! ");
}

void HttpSession::setInterruptOptions() {
    setOption<curl_opensocket_callback>(CURLOPT_OPENSOCKETFUNCTION,
                                        InterruptibleSockets::openSocketCallback,
                                        "CURLOPT_OPENSOCKETFUNCTION ! ");
    setOption<curl_closesocket_callback>(CURLOPT_CLOSESOCKETFUNCTION,
                                         InterruptibleSockets::closeSocketCallback,
                                         "CURLOPT_CLOSESOCKETFUNCTION ! ");
    setOption<curl_resolver_start_callback>(CURLOPT_RESOLVER_START_FUNCTION,
                                            InterruptibleSockets::resolverStartCallback,
                                            "CURLOPT_RESOLVER_START_FUNCTION ! ");
}

void HttpSession::setRequestOptions(size_t bodySize, const Method& method) {
    if (method == POST) {
        setOption(CURLOPT_POSTFIELDSIZE, bodySize, "213 : CURLOPT_POSTFIELDSIZE ! ");
        setOption(CURLOPT_POST, 1L, "214 : CURLOPT_POST ! ");
    }
    setOption(CURLOPT_HTTPHEADER, headers, "220 : CURLOPT_HTTPHEADER ! ");
}

int HttpSession::get(const std::string& body) {
    return request(body, GET);
}

int HttpSession::post(const std::string& body) {
    return request(body, POST);
}

int HttpSession::request(const std::string& body, const Method& method) {
    if (busy) {
        REPORTER_ERROR("CURL error ! " << url);
        return 0;
    }
    busy = true;
    composeHeader(body.size());
    sent = 0;
    replySize = 0;
    setRequestOptions(body.size(), method);
    requestData = &body;

    const auto begin = std::chrono::system_clock::now();
    const CURLcode result = layer->curl_easy_perform(curl);
    const double seconds = secondsBetween(begin, std::chrono::system_clock::now());
    requestData = nullptr;
    if (result != CURLE_OK) {
        // Kept: busy stays set. The owner is expected to drop a session whose transfer failed.
        REPORTER_ERROR(url << " time:" << seconds << " sent:" << body.size() << " curl:" << result
                           << " ! " << layer->curl_easy_strerror(result));
        return -static_cast<int>(result);
    }
    long code = 0;
    layer->curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
    REPORTER_INFO(url << " time:" << seconds << " sent:" << body.size() << " received:" << replySize
                      << " http:" << code);
    busy = false;
    return static_cast<int>(code);
}

// Kept: the list is never emptied, so a second request repeats the lines of the first.
void HttpSession::composeHeader(size_t bodySize) {
    appendHeader("Content-Type: application/json");
    appendHeader("Content-Length: " + std::to_string(bodySize));
}

void HttpSession::appendHeader(const std::string& line) {
    curl_slist* const longer = layer->curl_slist_append(headers, line.c_str());
    if (longer == nullptr) {
        busy = true;
        throw std::domain_error("FAIL ! " + line);
    }
    headers = longer;
}

size_t HttpSession::sendCallback(unsigned char* buffer, size_t size, size_t nitems,
                                 HttpSession* session) noexcept {
    HttpSession* const aux = session;
    if (aux == nullptr || buffer == nullptr || interruptSignal) {
        return 0;
    }
    assert(aux->requestData);
    const std::string& body = *aux->requestData;
    size_t chunkSize = 0;
    if (aux->sent < body.size()) {
        chunkSize = std::min(size * nitems, body.size() - aux->sent);
        std::memcpy(buffer, body.data() + aux->sent, chunkSize);
        aux->sent += chunkSize;
        REPORTER_INFO("sent " << aux->sent << " bytes");
    }
    REPORTER_INFO("returned chunkSize=" << chunkSize);
    return chunkSize;
}

size_t HttpSession::receiveCallback(unsigned char* data, size_t size, size_t nmemb,
                                    HttpSession* session) noexcept {
    if (session == nullptr || data == nullptr || interruptSignal) {
        return 0;
    }
    const size_t n = size * nmemb;
    if (n == 0 || !session->growReply(n)) {
        return 0;
    }
    std::memcpy(session->reply + session->replySize, data, n);
    session->replySize += n;
    return n;
}

CURLcode HttpSession::sslctxfun(void* /*curl*/, void* sslctx, void* session) {
    try {
        CURLcode result = CURLE_ABORTED_BY_CALLBACK;
        if (sslctx == nullptr || session == nullptr) {
            REPORTER_ERROR("self:" << session << " ctx:" << sslctx);
        } else if (installCredentials(static_cast<SSL_CTX*>(sslctx))) {
            result = CURLE_OK;
        }
        REPORTER_INFO("sslctxfun curl status: " << result);
        return result;
    } catch (const std::exception&) {
        return CURLE_ABORTED_BY_CALLBACK;
    }
}

bool HttpSession::growReply(size_t chunk) noexcept {
    constexpr size_t block = 512;
    if (chunk <= replyCapacity - replySize) {
        return true;
    }
    if (chunk > SIZE_MAX - (block - 1) - replyCapacity) {
        return false;
    }
    const size_t capacity = (chunk + (block - 1) + replyCapacity) / block * block;
    void* const grown = std::realloc(reply, capacity);
    if (grown == nullptr) {
        return false;
    }
    reply = static_cast<unsigned char*>(grown);
    replyCapacity = capacity;
    return true;
}

}  // namespace tev::transport
