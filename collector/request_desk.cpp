#include "request_desk.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>
#include <utility>

#include "cut_answer.h"
#include "request_line.h"
#include "stored_text.h"
#include "tls.h"

namespace collector {
namespace {

constexpr int BAD_REQUEST = 400;
constexpr int NOT_FOUND = 404;
constexpr int TIMEOUT = 408;
constexpr int NO_LENGTH = 411;
constexpr int TOO_LARGE = 413;
constexpr int PACKED = 415;
constexpr const char* JSON_TYPE = "application/json";
/// Marks an answer that this program has made and printed a line for.
constexpr const char* NUMBER_HEADER = "X-Request-Number";
/// By which a proxy hands on the subject of the certificate that it has verified.
constexpr const char* CLIENT_HEADER = "X-Client-Subject";
/// Each takes some hundred bytes once it is parsed, though two may do in the body.
constexpr std::ptrdiff_t MOST_VALUES = 1'000'000;

/// The agent puts a slash before the path, which may begin with slashes already.
std::string without_leading_slashes(const std::string& path) {
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

bool has_too_many_values(const std::string& body) {
    return std::count_if(body.begin(), body.end(),
                         [](char c) { return c == ',' || c == '[' || c == '{'; }) > MOST_VALUES;
}

std::string client_of(const httplib::Request& request) {
    return storable(request.ssl != nullptr ? client_name(*request.ssl)
                                           : request.get_header_value(CLIENT_HEADER));
}

}  // namespace

request_desk::request_desk(request_judge& judge, counters& counted, latest_requests& latest,
                           answer_plan plan)
    : _judge(judge), _counters(counted), _latest(latest), _plan(std::move(plan)) {}

void request_desk::attach(httplib::Server& server) {
    using httplib::Request;
    using httplib::Response;
    server.set_pre_routing_handler([](const Request& request, Response& response) {
        // The library would unpack the body, and limit only what it was before. It does not limit
        // at all what comes in chunks.
        const bool packed = request.has_header("Content-Encoding");
        if (!packed && !request.has_header("Transfer-Encoding")) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        response.status = packed ? PACKED : NO_LENGTH;
        return httplib::Server::HandlerResponse::Handled;
    });
    server.Post(".*",
                [this](const Request& request, Response& response) { answer(request, response); });
    // Requests that never reach the handler: another method, a body too large, packed or in
    // chunks, a broken head.
    server.set_error_handler([this](const Request& request, Response& response) {
        if (!response.has_header(NUMBER_HEADER)) {
            refuse(request, response);
        }
    });
}

void request_desk::answer(const httplib::Request& request, httplib::Response& response) {
    static const std::map<std::string, endpoint> ENDPOINTS = {
        {"reports", endpoint::REPORTS}, {"check_hashes", endpoint::CHECK_HASHES}};
    const std::string path = without_leading_slashes(request.path);
    const auto found = ENDPOINTS.find(path);
    if (found == ENDPOINTS.end() || has_too_many_values(request.body)) {
        response.status = found == ENDPOINTS.end() ? NOT_FOUND : TOO_LARGE;
        refuse(request, response);
        return;
    }

    const auto begin = std::chrono::steady_clock::now();
    unsigned number = 0;
    const planned_answer planned = count_and_plan(found->second, number);
    const decision made = _judge.decide(found->second, client_of(request), request.body, planned);
    _counters.add(path, made, std::chrono::steady_clock::now() - begin);
    print_line(number, request, made, planned);

    response.status = made.status;
    response.set_header(NUMBER_HEADER, std::to_string(number));
    response.set_content(planned.body.value_or(made.text()), JSON_TYPE);
    std::this_thread::sleep_for(planned.delay);
    if (planned.cut != cut_point::NOWHERE && request.ssl != nullptr) {
        send_and_close(*request.ssl, cut_answer(response, planned.cut));
    }
}

void request_desk::refuse(const httplib::Request& request, httplib::Response& response) {
    // The library says 400 for what it could not read to the end. Only what was read is refused for
    // good.
    response.status = response.status == BAD_REQUEST ? TIMEOUT : response.status;
    decision made;
    made.status = response.status;
    made.reason = made.status == TOO_LARGE ? "the body is too large" : "not a request of the agent";
    unsigned number = 0;
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        number = ++_total;
    }
    _counters.add("other", made, {});
    print_line(number, request, made, {});
    response.set_header(NUMBER_HEADER, std::to_string(number));
    response.set_content(made.text(), JSON_TYPE);
}

void request_desk::plan_next(next_answers next) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _next = std::move(next);
}

Json::Value request_desk::planned_lines() {
    const std::lock_guard<std::mutex> lock(_mutex);
    Json::Value lines(Json::arrayValue);
    for (const std::string& line : _next.lines) {
        lines.append(line);
    }
    return lines;
}

planned_answer request_desk::count_and_plan(endpoint where, unsigned& number) {
    const std::lock_guard<std::mutex> lock(_mutex);
    number = ++_total;
    const planned_answer next = _next.plan.find(where, ++_next.counts[where]);
    const planned_answer given = _plan.find(where, ++_counts[where]);
    return next.text.empty() ? given : next;
}

void request_desk::print_line(unsigned number, const httplib::Request& request,
                              const decision& made, const planned_answer& planned) {
    const request_line line(number, request, client_of(request), made, planned);
    _latest.add(line.row());
    const std::lock_guard<std::mutex> lock(_mutex);
    std::cout << line.text() << std::endl;
}

}  // namespace collector
