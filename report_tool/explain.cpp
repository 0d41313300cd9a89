#include "explain.h"

namespace report_tool {
namespace {

struct meaning {
    int number;
    const char* text;
};

constexpr meaning statuses[] = {
    {200, "the server took the request"},
    {301, "the server wants another address"},
    {302, "the server wants another address"},
    {307, "the server wants another address"},
    {308, "the server wants another address"},
    {400, "refused for good: all its reports are removed"},
    {401, "this device is not admitted"},
    {403, "this device is not admitted"},
    {404, "no such path there: compare the URL"},
    {413, "too large for the server: see max_body_size"},
    {429, "the server is overloaded"},
    {500, "the server has a fault"},
    {502, "the server behind a proxy is down"},
    {503, "the server is overloaded or down"},
    {504, "the server behind a proxy does not answer"},
    {-1, "the scheme is misspelt, or what answers is no HTTP server"},
    {-3, "the URL has no host, a port of its own or a blank"},
    {-5, "the proxy's name is not known"},
    {-6, "the server's name is not known, or there is no network"},
    {-7, "nobody listens at that port, or no network"},
    {-18, "closed in the middle of the answer"},
    {-28, "sending_timeout passed"},
    {-35, "no TLS 1.2 in common, or the device's certificate is not trusted"},
    {-42, "the device's own credentials, or a stop"},
    {-52, "closed without an answer"},
    {-55, "closed while the request went out"},
    {-56, "closed before the answer was whole"},
    {-60, "the server's certificate is not trusted, the device's has expired, or a clock is wrong"},
};

}  // namespace

std::string explain_status(int status) {
    if (status == 0) {
        return "no answer is told";
    }
    const std::string name =
        status > 0 ? "http:" + std::to_string(status) : "curl:" + std::to_string(-status);
    for (const meaning& one : statuses) {
        if (one.number == status) {
            return name + ", " + one.text;
        }
    }
    return name + (status > 0 ? ", no answer of a collection server" : ", see its text");
}

std::string explain_code(int code) {
    const char* const meaning = code == 200   ? "taken"
                                : code == 400 ? "refused for good"
                                              : "not now, goes with the next pass";
    return std::to_string(code) + ", " + meaning;
}

}  // namespace report_tool
