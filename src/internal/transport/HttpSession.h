#pragma once

#include <cstddef>
#include <string>

#include <curl/curl.h>

#include "internal/transport/CurlLayer.h"

namespace tev::transport {

/// Ciphers that a session offers, as OpenSSL and libcurl take them.
inline constexpr const char* cipherList =
    "AES128-GCM-SHA256, AES128-SHA256, DHE-RSA-AES128-GCM-SHA256, ECDHE-ECDSA-AES128-GCM-SHA256, "
    "ECDHE-RSA-AES128-GCM-SHA256, ECDHE-RSA-AES256-GCM-SHA384";

/// One libcurl easy handle bound to one URL, for synchronous JSON requests. "https://" means TLS
/// 1.2 with both ends authenticated. After one failed transfer it refuses every request. One thread
/// at a time; only setInterruptSignal() may come from another.
class HttpSession {
public:
    enum Method { GET = 0, POST = 1 };

    /// `timeout`, in seconds, bounds a whole request. Throws std::domain_error when an option
    /// cannot be set. Without a libcurl handle the object exists, but every request answers 0.
    HttpSession(const std::string& address, long timeout);
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    /// Closes the connection and frees the last reply.
    ~HttpSession();

    /// HTTP status of a completed transfer, negated libcurl code of a failed one, 0 when the
    /// session is unusable. Throws std::domain_error when the request cannot be set up, and leaves
    /// the session unusable then. `body` is read during the call only.
    int request(const std::string& body, const Method& method);
    /// request() by either method; a GET does not send its body.
    int get(const std::string& body);
    int post(const std::string& body);

    /// Bytes of the last reply, not NUL-terminated; null while nothing was ever received. Owned by
    /// the session, valid until its next request.
    const unsigned char* getReply() const { return reply; }
    size_t getReplySize() const { return replySize; }

    /// Appends the header lines of a request with that many bytes. Throws std::domain_error, and
    /// leaves the session unusable then.
    void composeHeader(size_t bodySize);

    /// libcurl's read and write callbacks. 0 ends the upload or refuses the data, which fails the
    /// transfer; after an interrupt both answer so. Neither throws.
    static size_t sendCallback(unsigned char* buffer, size_t size, size_t nitems,
                               HttpSession* session) noexcept;
    static size_t receiveCallback(unsigned char* data, size_t size, size_t nmemb,
                                  HttpSession* session) noexcept;
    /// libcurl's SSL-context callback: installs the trusted CAs and the client's key and
    /// certificate in `sslctx`. Where one is missing it answers CURLE_ABORTED_BY_CALLBACK, so that
    /// nothing is sent without them. Never throws.
    static CURLcode sslctxfun(void* curl, void* sslctx, void* session);

private:
    explicit HttpSession(const std::string& address);

    void setTransferOptions(long timeout);
    void setTlsOptions();
    void setInterruptOptions();
    void setRequestOptions(size_t bodySize, const Method& method);
    void appendHeader(const std::string& line);
    /// Makes room for `chunk` more bytes. False, with the buffer as it was, without memory.
    bool growReply(size_t chunk) noexcept;
    /// Throws std::domain_error with `label` and libcurl's text.
    template <typename T>
    void setOption(CURLoption option, T value, const char* label);

    std::string url;
    CURL* curl = nullptr;
    CurlLayer* layer;
    curl_slist* headers = nullptr;
    bool busy = false;                         ///< during a request; for good after a failure
    const std::string* requestData = nullptr;  ///< body of the request under way; not owned
    unsigned char* reply = nullptr;  ///< malloc'ed, `replyCapacity` bytes, `replySize` used
    size_t replyCapacity = 0;
    size_t sent = 0;
    size_t replySize = 0;
};

/// Ends every transfer of the process at once, and all later ones. One-way. Any thread; not for
/// signal handlers.
void setInterruptSignal();

}  // namespace tev::transport
