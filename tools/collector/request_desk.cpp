#include "request_desk.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <thread>
#include <utility>

#include "tls.h"

namespace collector {
namespace {

constexpr int OK = 200;
constexpr int BAD_REQUEST = 400;
constexpr int NOT_FOUND = 404;
constexpr int TOO_LARGE = 413;
constexpr int SERVER_ERROR = 500;
constexpr const char* JSON_TYPE = "application/json";
/// Marks an answer that this program has made and printed a line for.
constexpr const char* NUMBER_HEADER = "X-Request-Number";

/// The agent puts a slash before the path, which may begin with slashes already.
std::string without_leading_slashes(const std::string& path) {
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string to_text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

/// The codes and how often each occurs, as "200*11,503*1"; "-" for none.
std::string summary(const Json::Value& codes) {
    std::map<std::string, unsigned> counts;
    for (const Json::Value& code : codes) {
        ++counts[to_text(code)];
    }
    std::string text;
    for (const auto& [code, count] : counts) {
        text += (text.empty() ? "" : ",") + code + "*" + std::to_string(count);
    }
    return text.empty() ? "-" : text;
}

std::string head_of(const httplib::Response& response) {
    std::ostringstream head;
    head << "HTTP/1.1 " << response.status << " Planned\r\n";
    for (const auto& [name, value] : response.headers) {
        head << name << ": " << value << "\r\n";
    }
    head << "Content-Length: " << response.body.size() << "\r\n\r\n";
    return head.str();
}

/// The part of an answer that is sent before it breaks off.
std::string cut_answer(const httplib::Response& response, cut_point cut) {
    const std::string head = head_of(response);
    switch (cut) {
        case cut_point::IN_HEAD:
            return head.substr(0, head.size() / 2);
        case cut_point::IN_BODY:
            return head + response.body.substr(0, response.body.size() / 2);
        default:
            return "";
    }
}

std::string answer_text(int status, const Json::Value& codes, const std::string& reason) {
    Json::Value answer(Json::objectValue);
    if (status == OK) {
        answer["body"] = codes;
    } else {
        answer["reason"] = reason;
    }
    return to_text(answer);
}

}  // namespace

request_desk::request_desk(answer_plan plan, report_store store)
    : _plan(std::move(plan)), _store(std::move(store)) {}

void request_desk::attach(httplib::Server& server) {
    using httplib::Request;
    using httplib::Response;
    server.Post(".*",
                [this](const Request& request, Response& response) { answer(request, response); });
    // Requests that never reach the handler: another method, a body too large, a broken head.
    server.set_error_handler([this](const Request& request, Response& response) {
        if (!response.has_header(NUMBER_HEADER)) {
            refuse(request, response);
        }
    });
}

void request_desk::answer(const httplib::Request& request, httplib::Response& response) {
    static const std::map<std::string, endpoint> ENDPOINTS = {
        {"reports", endpoint::REPORTS}, {"check_hashes", endpoint::CHECK_HASHES}};
    const auto found = ENDPOINTS.find(without_leading_slashes(request.path));
    if (found == ENDPOINTS.end()) {
        response.status = NOT_FOUND;
        refuse(request, response);
        return;
    }

    unsigned number = 0;
    const planned_answer planned = count_and_plan(found->second, number);
    const decision made = decide(found->second, request.body, planned);
    print_line(number, request, made, planned);

    response.status = made.status;
    response.set_header(NUMBER_HEADER, std::to_string(number));
    response.set_content(planned.body.value_or(answer_text(made.status, made.codes, made.reason)),
                         JSON_TYPE);
    std::this_thread::sleep_for(planned.delay);
    if (planned.cut != cut_point::NOWHERE) {
        send_and_close(*request.ssl, cut_answer(response, planned.cut));
    }
}

void request_desk::refuse(const httplib::Request& request, httplib::Response& response) {
    decision made;
    made.status = response.status;
    made.reason = made.status == TOO_LARGE ? "the body is too large" : "not a request of the agent";
    unsigned number = 0;
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        number = ++_total;
    }
    print_line(number, request, made, {});
    response.set_header(NUMBER_HEADER, std::to_string(number));
    response.set_content(answer_text(made.status, made.codes, made.reason), JSON_TYPE);
}

planned_answer request_desk::count_and_plan(endpoint where, unsigned& number) {
    const std::lock_guard<std::mutex> lock(_mutex);
    number = ++_total;
    return _plan.find(where, ++_counts[where]);
}

request_desk::decision request_desk::decide(endpoint where, const std::string& text,
                                            const planned_answer& planned) {
    decision made;
    made.status = planned.status.value_or(OK);
    made.reason = made.status == OK ? "" : "planned";
    try {
        const bool reports = where == endpoint::REPORTS;
        const request_form form = reports ? parse_report_post(text) : parse_hash_check(text);
        made.entries = form.body.size();
        if (made.status == OK) {
            reports ? decide_reports(form, planned, made) : decide_hashes(form, planned, made);
        }
    } catch (const malformed_request& e) {
        made.status = BAD_REQUEST;
        made.reason = e.what();
    } catch (const std::exception& e) {
        made.status = SERVER_ERROR;
        made.codes.clear();
        made.reason = e.what();
    }
    return made;
}

void request_desk::decide_reports(const request_form& form, const planned_answer& planned,
                                  decision& made) {
    for (Json::ArrayIndex i = 0; !planned.codes && i < form.body.size(); ++i) {
        made.codes.append(OK);
    }
    if (planned.codes) {
        made.codes = *planned.codes;
    }

    const std::lock_guard<std::mutex> lock(_mutex);
    for (Json::ArrayIndex i = 0; planned.keep && i < form.body.size(); ++i) {
        if (made.codes.isValidIndex(i) && made.codes[i] == OK) {
            _store.keep(form.body[i], form.header);
        }
    }
}

void request_desk::decide_hashes(const request_form& form, const planned_answer& planned,
                                 decision& made) {
    if (planned.codes) {
        made.codes = *planned.codes;
        return;
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const Json::Value& hash : form.body) {
        made.codes.append(_store.knows(hash.asString()) ? 1 : 0);
    }
}

void request_desk::print_line(unsigned number, const httplib::Request& request,
                              const decision& made, const planned_answer& planned) {
    // The target as it was sent, since a decoded one might hold a newline.
    std::ostringstream line;
    line << number << ' ' << request.method << ' ' << request.target
         << " bytes=" << request.body.size() << " entries=" << made.entries
         << " status=" << made.status << " codes=" << summary(made.codes) << " client="
         << Json::valueToQuotedString(request.ssl ? client_name(*request.ssl).c_str() : "");
    if (!planned.text.empty()) {
        line << " plan=" << Json::valueToQuotedString(planned.text.c_str());
    }
    if (!made.reason.empty()) {
        line << " reason=" << Json::valueToQuotedString(made.reason.c_str());
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    std::cout << line.str() << std::endl;
}

}  // namespace collector
