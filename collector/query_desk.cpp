#include "query_desk.h"

#include <ctime>

#include <array>
#include <iostream>
#include <string>

namespace collector {
namespace {

constexpr int UNAVAILABLE = 503;
constexpr const char* JSON_TYPE = "application/json";

/// A path, and what it is answered with. $1 is the value of `uid` in the request; $2 the time, in
/// seconds since 1970, from which on reports count: a day ago, or the value of `since`.
struct query {
    const char* path;
    const char* sql;
};

constexpr std::array QUERIES = {
    query{"/devices",
          "SELECT duid, client, facts, last_contact FROM devices "
          "WHERE $1 = '' AND last_contact >= CAST($2 AS BIGINT) "
          "ORDER BY last_contact DESC LIMIT 1000"},
    query{"/reports",
          "SELECT arrived, duid, uid, module, type, count, size, repeats "
          "FROM shown_reports WHERE $1 IN ('', uid) AND arrived >= CAST($2 AS BIGINT) "
          "ORDER BY arrived DESC LIMIT 100"},
    query{"/report",
          "SELECT * FROM shown_reports WHERE uid = $1 AND CAST($2 AS BIGINT) IS NOT NULL"},
    query{"/hours",
          "SELECT module, arrived / 3600 * 3600 AS hour, count(*) AS reports, "
          "CAST(sum(count) AS BIGINT) AS occurrences FROM shown_reports "
          "WHERE $1 = '' AND arrived >= CAST($2 AS BIGINT) GROUP BY 1, 2 ORDER BY 2, 1"},
    query{"/repetitions",
          "SELECT uid, duid, arrived, repeats FROM shown_reports "
          "WHERE $1 IN ('', uid) AND arrived >= CAST($2 AS BIGINT) AND repeats > 0 "
          "ORDER BY repeats DESC LIMIT 1000"}};

constexpr std::time_t A_DAY = 86400;

std::string since(const httplib::Request& request) {
    const std::string given = request.get_param_value("since");
    const bool is_time = !given.empty() && given.size() <= 10 &&
                         given.find_first_not_of("0123456789") == std::string::npos;
    return is_time ? given : std::to_string(std::time(nullptr) - A_DAY);
}

}  // namespace

query_desk::query_desk(report_store& store, const counters& counted)
    : _store(store), _counters(counted) {}

void query_desk::attach(httplib::Server& server) {
    using httplib::Request;
    using httplib::Response;
    server.Get("/metrics", [this](const Request&, Response& response) {
        response.set_content(_counters.text(), "text/plain; version=0.0.4");
    });
    server.Get("/health", [this](const Request&, Response& response) { tell_health(response); });
    for (const query& each : QUERIES) {
        server.Get(each.path, [this, sql = each.sql](const Request& request, Response& response) {
            tell_rows(sql, request, response);
        });
    }
}

void query_desk::tell_health(httplib::Response& response) {
    try {
        _store.rows("SELECT uid FROM pairs LIMIT 1", {});
        response.set_content("{\"store\":\"here\"}", JSON_TYPE);
    } catch (const std::exception& e) {
        std::cerr << "health: " << e.what() << std::endl;
        response.status = UNAVAILABLE;
        response.set_content("{\"store\":\"away\"}", JSON_TYPE);
    }
}

void query_desk::tell_rows(const char* sql, const httplib::Request& request,
                           httplib::Response& response) {
    try {
        Json::Value answer(Json::objectValue);
        answer["rows"] = _store.rows(sql, {request.get_param_value("uid"), since(request)});
        response.set_content(to_text(answer), JSON_TYPE);
    } catch (const std::exception& e) {
        std::cerr << "query: " << e.what() << std::endl;
        response.status = UNAVAILABLE;
        response.set_content("{\"store\":\"away\"}", JSON_TYPE);
    }
}

}  // namespace collector
