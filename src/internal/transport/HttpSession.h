#pragma once

#include <cstddef>
#include <string>

#include <curl/curl.h>

#include "internal/transport/CurlLayer.h"

namespace tev::transport {

/// One libcurl easy handle bound to one URL, for synchronous JSON requests; "https://" means
/// TLS 1.2, both ends authenticated. After one failed transfer it refuses every request.
/// One thread at a time; only setInterruptSignal() may come from another.
class HttpSession {
public:
    enum Method { GET = 0, POST = 1 };

    /// `timeout`, in seconds, bounds a whole request. Throws std::domain_error when an option
    /// cannot be set. Without a libcurl handle the object exists, but every request answers 0.
    HttpSession(const std::string& address, long timeout);
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    ~HttpSession();

    /// HTTP status of a completed transfer, negated libcurl code of a failed one, 0 when the
    /// session is unusable. Throws std::domain_error when the request cannot be set up, and leaves
    /// the session unusable then. `body` is read during the call only.
    int request(const std::string& body, const Method& method);
    int get(const std::string& body);
    int post(const std::string& body);

    /// Bytes of the last reply, not NUL-terminated; null while nothing was ever received. Owned by
    /// the session, valid until its next request.
    const unsigned char* getReply() const { return reply; }
    size_t getReplySize() const { return replySize; }

    /// Appends the header lines of a request with that many bytes. Throws std::domain_error, and
    /// leaves the session unusable then.
    void composeHeader(size_t bodySize);

    /// libcurl's read and write callbacks; 0 ends or refuses the transfer. Neither throws.
    static size_t sendCallback(unsigned char* buffer, size_t size, size_t nitems,
                               HttpSession* session) noexcept;
    static size_t receiveCallback(unsigned char* data, size_t size, size_t nmemb,
                                  HttpSession* session) noexcept;
    /// libcurl's SSL-context callback: installs the trusted CAs and the client's key and
    /// certificate in `sslctx`. Anything missing answers CURLE_ABORTED_BY_CALLBACK, so nothing is
    /// ever sent without them. Never throws.
    static CURLcode sslctxfun(void* curl, void* sslctx, void* session);

private:
    explicit HttpSession(const std::string& address);

    void setTransferOptions(long timeout);
    void setTlsOptions();
    void setInterruptOptions();
    void setRequestOptions(size_t bodySize, const Method& method);
    void appendHeader(const std::string& line);
    bool growReply(size_t chunk) noexcept;
    template <typename T>
    void setOption(CURLoption option, T value, const char* label);

    std::string url;
    CURL* curl = nullptr;
    CurlLayer* layer;
    curl_slist* headers = nullptr;
    bool busy = false;
    const std::string* requestData = nullptr;
    unsigned char* reply = nullptr;
    size_t replyCapacity = 0;
    size_t sent = 0;
    size_t replySize = 0;
};

/// Ends every transfer of the process at once, and all later ones. One-way. Any thread; not for
/// signal handlers.
void setInterruptSignal();

}  // namespace tev::transport
