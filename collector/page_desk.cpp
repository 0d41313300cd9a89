#include "page_desk.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace collector {
namespace {

constexpr int BAD_REQUEST = 400;
constexpr int WRONG_TYPE = 415;
constexpr const char* JSON_TYPE = "application/json";

/// {"lines": [...]}. Throws a std::exception that says what is wrong.
next_answers parse_lines(const std::string& body) {
    Json::Value document;
    std::istringstream(body) >> document;
    next_answers next;
    for (const Json::Value& line : document["lines"]) {
        next.plan.add(line.asString());
        next.lines.push_back(line.asString());
    }
    return next;
}

}  // namespace

page_desk::page_desk(std::string directory, const latest_requests& latest, request_desk* planned)
    : _directory(std::move(directory)), _latest(latest), _planned(planned) {}

void page_desk::attach(httplib::Server& server) {
    using httplib::Request;
    using httplib::Response;
    if (!server.set_mount_point("/", _directory)) {
        throw std::runtime_error("cannot serve the page's directory " + _directory);
    }
    server.Get("/requests",
               [this](const Request&, Response& response) { tell_requests(response); });
    if (_planned != nullptr) {
        server.Post("/answers", [this](const Request& request, Response& response) {
            plan_answers(request, response);
        });
    }
}

void page_desk::tell_requests(httplib::Response& response) {
    Json::Value answer(Json::objectValue);
    answer["rows"] = _latest.rows();
    answer["answers"] = _planned != nullptr ? _planned->planned_lines() : Json::Value();
    response.set_content(to_text(answer), JSON_TYPE);
}

void page_desk::plan_answers(const httplib::Request& request, httplib::Response& response) {
    // A form of another site cannot send this type.
    if (request.get_header_value("Content-Type") != JSON_TYPE) {
        response.status = WRONG_TYPE;
        return;
    }
    Json::Value answer(Json::objectValue);
    try {
        _planned->plan_next(parse_lines(request.body));
    } catch (const std::exception& e) {
        response.status = BAD_REQUEST;
        answer["reason"] = e.what();
    }
    response.set_content(to_text(answer), JSON_TYPE);
}

}  // namespace collector
