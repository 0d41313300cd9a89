#include "request_judge.h"

#include <utility>

#include "request_form.h"

namespace collector {
namespace {

constexpr int OK = 200;
constexpr int BAD_REQUEST = 400;
constexpr int UNAVAILABLE = 503;

/// The reports that have the form and are answered 200.
Json::Value accepted(const request_form& form, const Json::Value& codes) {
    Json::Value reports(Json::arrayValue);
    for (Json::ArrayIndex i = 0; i < form.body.size(); ++i) {
        if (codes.isValidIndex(i) && codes[i] == OK && form.faults.count(i) == 0) {
            reports.append(form.body[i]);
        }
    }
    return reports;
}

Json::Value codes_of(const request_form& form) {
    Json::Value codes(Json::arrayValue);
    for (Json::ArrayIndex i = 0; i < form.body.size(); ++i) {
        codes.append(form.faults.count(i) == 0 ? OK : BAD_REQUEST);
    }
    return codes;
}

}  // namespace

std::string decision::text() const {
    Json::Value answer(Json::objectValue);
    if (status == OK) {
        answer["body"] = codes;
    } else {
        // Where the store is and what ails it is for the log alone.
        answer["reason"] = status == UNAVAILABLE ? "not now" : reason;
    }
    return to_text(answer);
}

request_judge::request_judge(report_store& store, std::set<std::string> known_hashes)
    : _store(store), _known_hashes(std::move(known_hashes)) {}

decision request_judge::decide(endpoint where, const std::string& client, const std::string& body,
                               const planned_answer& planned) {
    decision made;
    made.status = planned.status.value_or(OK);
    made.reason = made.status == OK ? "" : "planned";
    try {
        if (where == endpoint::REPORTS) {
            take_reports(client, body, planned, made);
        } else {
            look_hashes_up(client, body, planned, made);
        }
    } catch (const malformed_request& e) {
        made.status = BAD_REQUEST;
        made.reason = e.what();
    } catch (const std::exception& e) {
        made.status = UNAVAILABLE;
        made.codes.clear();
        made.reason = e.what();
    }
    return made;
}

void request_judge::take_reports(const std::string& client, const std::string& body,
                                 const planned_answer& planned, decision& made) {
    const request_form form = parse_report_post(body);
    made.entries = form.body.size();
    if (made.status != OK) {
        return;
    }
    made.codes = planned.codes.value_or(codes_of(form));
    if (planned.keep) {
        made.done = _store.keep({client, form.header}, accepted(form, made.codes));
    }
    if (!form.faults.empty()) {
        const auto& [index, fault] = *form.faults.begin();
        made.reason = "report " + std::to_string(index) + ": " + fault;
    }
}

void request_judge::look_hashes_up(const std::string& client, const std::string& body,
                                   const planned_answer& planned, decision& made) {
    const request_form form = parse_hash_check(body);
    made.entries = form.body.size();
    if (made.status != OK) {
        return;
    }
    const std::vector<bool> known = _store.known({client, form.header}, form.body);
    for (Json::ArrayIndex i = 0; i < form.body.size(); ++i) {
        made.codes.append(known[i] || _known_hashes.count(form.body[i].asString()) != 0 ? 1 : 0);
    }
    made.codes = planned.codes.value_or(made.codes);
}

}  // namespace collector
