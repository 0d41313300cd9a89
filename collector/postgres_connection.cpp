#include "postgres_connection.h"

#include <array>
#include <stdexcept>

#include <libpq-fe.h>

namespace collector {
namespace {

using result_owner = std::unique_ptr<PGresult, decltype(&PQclear)>;

/// Numbers of types in the server's catalogue, which never change.
enum type_number : Oid { BOOLEAN = 16, INT8 = 20, INT2 = 21, INT4 = 23 };

/// The first line; what follows may quote the statement's arguments.
[[noreturn]] void fail(const char* message) {
    const std::string text = message;
    throw std::runtime_error("the store: " + text.substr(0, text.find('\n')));
}

result_owner checked(PGconn* connection, PGresult* result) {
    result_owner owned(result, &PQclear);
    const ExecStatusType status = PQresultStatus(result);
    if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
        fail(PQerrorMessage(connection));
    }
    return owned;
}

Json::Value value(const PGresult& result, int row, int column) {
    if (PQgetisnull(&result, row, column) != 0) {
        return {};
    }
    const char* const text = PQgetvalue(&result, row, column);
    switch (PQftype(&result, column)) {
        case BOOLEAN:
            return *text == 't';
        case INT2:
        case INT4:
        case INT8:
            return Json::Int64(std::stoll(text));
        default:
            return text;
    }
}

}  // namespace

postgres_connection::postgres_connection(const std::string& url) : _connection(nullptr, &PQfinish) {
    // Parameters in the URL come last and win. What waits for longer than 30 s, as for a lock or a
    // host that is gone, fails before the proxy gives up.
    constexpr std::array NAMES = {"connect_timeout", "client_encoding",
                                  "options",         "tcp_user_timeout",
                                  "dbname",          static_cast<const char*>(nullptr)};
    const std::array VALUES = {"5",     "UTF8",      "-c statement_timeout=30000",
                               "30000", url.c_str(), static_cast<const char*>(nullptr)};
    _connection.reset(PQconnectdbParams(NAMES.data(), VALUES.data(), 1));
    if (PQstatus(_connection.get()) != CONNECTION_OK) {
        fail(PQerrorMessage(_connection.get()));
    }
}

Json::Value postgres_connection::rows(const std::string& sql,
                                      const std::vector<std::string>& arguments) {
    std::vector<const char*> texts;
    texts.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    const result_owner result =
        checked(_connection.get(),
                PQexecPrepared(_connection.get(), prepared(sql).c_str(),
                               static_cast<int>(texts.size()), texts.data(), nullptr, nullptr, 0));
    Json::Value rows(Json::arrayValue);
    for (int i = 0; i < PQntuples(result.get()); ++i) {
        Json::Value row(Json::objectValue);
        for (int column = 0; column < PQnfields(result.get()); ++column) {
            row[PQfname(result.get(), column)] = value(*result, i, column);
        }
        rows.append(std::move(row));
    }
    return rows;
}

bool postgres_connection::is_lost() const {
    return PQstatus(_connection.get()) != CONNECTION_OK;
}

const std::string& postgres_connection::prepared(const std::string& sql) {
    const auto known = _prepared.find(sql);
    if (known != _prepared.end()) {
        return known->second;
    }
    const std::string name = "s" + std::to_string(_prepared.size());
    checked(_connection.get(), PQprepare(_connection.get(), name.c_str(), sql.c_str(), 0, nullptr));
    return _prepared[sql] = name;
}

}  // namespace collector
