#pragma once

#include <cstddef>

#include <curl/curl.h>

namespace tev::transport {

class HttpSession;

/// What a session registers with libcurl. None of them may throw.
using SslContextCallback = CURLcode (*)(void*, void*, void*);
using TransferCallback = std::size_t (*)(unsigned char*, std::size_t, std::size_t, HttpSession*);

/// The gate in front of libcurl. Every call of the transport goes through it; while it is not
/// ready, none of them reaches libcurl. The program uses the instance of getInst(); one made
/// otherwise starts not ready. Nothing is locked: sessions are made on one thread at a time. No
/// member throws.
class CurlLayer {
public:
    CurlLayer() = default;
    CurlLayer(const CurlLayer&) = delete;
    CurlLayer& operator=(const CurlLayer&) = delete;
    ~CurlLayer() = default;

    /// The process-wide instance. Each call runs init() again, and with it libcurl's global
    /// initialisation. libcurl's global state is never torn down.
    static CurlLayer& getInst();

    /// Makes the layer ready and initialises libcurl. True when libcurl answered CURLE_OK; the
    /// layer is ready either way.
    bool init();
    /// Fills the table from the linked symbols and makes the layer ready. Always true.
    bool resolveReferences();
    /// Kept: does nothing; the table and the readiness stay.
    void clearReferences();
    /// Tears libcurl's global state down if the layer is ready, and ends its readiness.
    void done();

    // libcurl's own calls, with its rules of ownership. Not ready: CURLE_FAILED_INIT, null, or
    // nothing done; curl_easy_strerror then gives "CURLE_FAILED_INIT".

    CURLcode curl_global_init(long flags);
    void curl_global_cleanup();
    CURL* curl_easy_init();
    CURLcode curl_easy_perform(void* handle);
    void curl_easy_cleanup(void* handle);
    CURLcode curl_easy_getinfo(void* handle, CURLINFO info, long* out);
    const char* curl_easy_strerror(CURLcode code);
    curl_slist* curl_slist_append(curl_slist* list, const char* text);
    void curl_slist_free_all(curl_slist* list);

    /// Integers and enumerations narrower than long are widened to it, because libcurl reads a
    /// long. Not ready: one log line and, unlike the calls above, CURLE_UNSUPPORTED_PROTOCOL.
    /// Instantiated in the source for the types that the transport passes.
    template <typename T>
    CURLcode curl_easy_setopt(void* handle, CURLoption option, T value);

private:
    /// libcurl's functions, all null until resolveReferences().
    struct References {
        decltype(&::curl_global_init) curl_global_init = nullptr;
        decltype(&::curl_global_cleanup) curl_global_cleanup = nullptr;
        decltype(&::curl_easy_init) curl_easy_init = nullptr;
        decltype(&::curl_easy_setopt) curl_easy_setopt = nullptr;
        decltype(&::curl_easy_perform) curl_easy_perform = nullptr;
        decltype(&::curl_easy_cleanup) curl_easy_cleanup = nullptr;
        decltype(&::curl_easy_getinfo) curl_easy_getinfo = nullptr;
        decltype(&::curl_easy_strerror) curl_easy_strerror = nullptr;
        decltype(&::curl_slist_free_all) curl_slist_free_all = nullptr;
        decltype(&::curl_slist_append) curl_slist_append = nullptr;
    };

    /// Set by resolveReferences(), ended by done().
    bool ready = false;
    /// Filled by resolveReferences(); read by every call.
    References references;
};

}  // namespace tev::transport
