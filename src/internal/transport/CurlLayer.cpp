#include "internal/transport/CurlLayer.h"

#include <type_traits>

#include "logging.h"

namespace tev::transport {

CurlLayer& CurlLayer::getInst() {
    static CurlLayer instance;
    instance.init();
    return instance;
}

bool CurlLayer::init() {
    resolveReferences();
    return curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
}

bool CurlLayer::resolveReferences() {
    references = {::curl_global_init,  ::curl_global_cleanup, ::curl_easy_init,
                  ::curl_easy_setopt,  ::curl_easy_perform,   ::curl_easy_cleanup,
                  ::curl_easy_getinfo, ::curl_easy_strerror,  ::curl_slist_free_all,
                  ::curl_slist_append};
    ready = true;
    return true;
}

void CurlLayer::clearReferences() {}

void CurlLayer::done() {
    curl_global_cleanup();
    ready = false;
}

CURLcode CurlLayer::curl_global_init(long flags) {
    return ready ? references.curl_global_init(flags) : CURLE_FAILED_INIT;
}

void CurlLayer::curl_global_cleanup() {
    if (ready) {
        references.curl_global_cleanup();
    }
}

CURL* CurlLayer::curl_easy_init() {
    return ready ? references.curl_easy_init() : nullptr;
}

CURLcode CurlLayer::curl_easy_perform(void* handle) {
    return ready ? references.curl_easy_perform(handle) : CURLE_FAILED_INIT;
}

void CurlLayer::curl_easy_cleanup(void* handle) {
    if (ready) {
        references.curl_easy_cleanup(handle);
    }
}

CURLcode CurlLayer::curl_easy_getinfo(void* handle, CURLINFO info, long* out) {
    return ready ? references.curl_easy_getinfo(handle, info, out) : CURLE_FAILED_INIT;
}

const char* CurlLayer::curl_easy_strerror(CURLcode code) {
    return ready ? references.curl_easy_strerror(code) : "CURLE_FAILED_INIT";
}

curl_slist* CurlLayer::curl_slist_append(curl_slist* list, const char* text) {
    return ready ? references.curl_slist_append(list, text) : nullptr;
}

void CurlLayer::curl_slist_free_all(curl_slist* list) {
    if (ready) {
        references.curl_slist_free_all(list);
    }
}

template <typename T>
CURLcode CurlLayer::curl_easy_setopt(void* handle, CURLoption option, T value) {
    if (!ready) {
        REPORTER_INFO("CURL is not ready\n");
        return CURLE_UNSUPPORTED_PROTOCOL;
    }
    if constexpr (std::is_pointer_v<T>) {
        return references.curl_easy_setopt(handle, option, value);
    } else {
        using Number = std::conditional_t<(sizeof(T) < sizeof(long)), long, T>;
        return references.curl_easy_setopt(handle, option, static_cast<Number>(value));
    }
}

template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, SslContextCallback);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, TransferCallback);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, curl_opensocket_callback);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, curl_closesocket_callback);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, curl_resolver_start_callback);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, curl_slist*);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, const char*);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, curl_usessl);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, unsigned int);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, unsigned long);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, int);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, long);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, void*);
template CURLcode CurlLayer::curl_easy_setopt(void*, CURLoption, HttpSession*);

}  // namespace tev::transport
