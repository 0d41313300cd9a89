#include "doctor/requests.h"

#include <exception>
#include <memory>

#include "http_session.h"
#include "internal/transport/HttpSession.h"
#include "json_io.h"
#include "modules/report_sender_module.h"

namespace report_tool::doctor {
namespace {

struct verdict {
    const char* cause;
    const char* advice;
};

verdict verdict_on(int status) {
    switch (status) {
        case 404:
            return {"not-found", "compare the path with the server's, character by character"};
        case 401:
        case 403:
            return {"not-admitted", "see whether the server knows this device"};
        case 429:
        case 500:
        case 502:
        case 503:
        case 504:
            return {"unavailable", "nothing on the device: see the server, or the proxy before it"};
        default:
            return {"status", "not the answer of a collection server: see what answers there"};
    }
}

void examine_path(group& points, const char* name, const std::string& url, const std::string& body,
                  unsigned int timeout_seconds) {
    tev::transport::HttpSession session(url, static_cast<long>(timeout_seconds));
    const int status = session.post(body);
    const std::string answer(reinterpret_cast<const char*>(session.getReply()),
                             session.getReplySize());
    const std::string found = url + " answers " + std::to_string(status);
    Json::Value content;
    if (status <= 0) {
        points.fault(name, "transfer", url + ": libcurl's error " + std::to_string(-status),
                     "see that number in the table of operations");
    } else if (status == 400) {
        points.ok(name, found + ", as a server may to a request without content");
    } else if (status != 200) {
        const verdict verdict = verdict_on(status);
        points.fault(name, verdict.cause, found, verdict.advice);
    } else if (!reporter::json_read(answer, content, reporter::json_comments::skip)) {
        points.fault(name, "no-json", found + ", and what it says is no JSON",
                     "not the answer of a collection server: see what answers there");
    } else {
        points.ok(name, found);
    }
}

}  // namespace

void examine_paths(group& points, const reporter::config_helper& sender,
                   unsigned int timeout_seconds) {
    try {
        std::shared_ptr<reporter::reports_storage> none;
        const reporter::modules::report_sender_module_policy policy(sender, none);
        std::vector<Json::Value> reports;
        const auto url_of = [&](const char* key) {
            return reporter::modules::create_http_session(
                       sender, sender.get<std::string>(std::string(key) + "_path", key))
                ->url;
        };
        examine_path(points, "check_hashes_path", url_of("check_hashes"),
                     policy.build_request(std::vector<std::string>()), timeout_seconds);
        examine_path(points, "reports_path", url_of("reports"), policy.build_request(reports),
                     timeout_seconds);
    } catch (const std::exception& error) {
        points.fault("reports_path", "unusable", error.what(), "see the configuration above");
    }
}

}  // namespace report_tool::doctor
