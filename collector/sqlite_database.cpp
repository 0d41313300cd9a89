#include "sqlite_database.h"

#include <stdexcept>

#include <sqlite3.h>

namespace collector {
namespace {

constexpr int LONGEST_WAIT_MS = 5000;

using statement_owner = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

[[noreturn]] void fail(sqlite3* connection) {
    throw std::runtime_error(std::string("the store: ") + sqlite3_errmsg(connection));
}

statement_owner prepare(sqlite3* connection, const std::string& sql,
                        const std::vector<std::string>& arguments) {
    sqlite3_stmt* made = nullptr;
    if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &made, nullptr) != SQLITE_OK) {
        fail(connection);
    }
    statement_owner statement(made, &sqlite3_finalize);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string name = "$" + std::to_string(i + 1);
        sqlite3_bind_text64(made, sqlite3_bind_parameter_index(made, name.c_str()),
                            arguments[i].data(), arguments[i].size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8);
    }
    return statement;
}

Json::Value column(sqlite3_stmt* statement, int index) {
    switch (sqlite3_column_type(statement, index)) {
        case SQLITE_NULL:
            return {};
        case SQLITE_INTEGER:
            return Json::Int64(sqlite3_column_int64(statement, index));
        default:
            return reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
    }
}

}  // namespace

sqlite_database::sqlite_database(const std::string& path) : _connection(nullptr, &sqlite3_close) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(path.empty() ? ":memory:" : path.c_str(), &opened);
    _connection.reset(opened);
    if (result != SQLITE_OK) {
        fail(opened);
    }
    sqlite3_busy_timeout(opened, LONGEST_WAIT_MS);
}

void sqlite_database::run(const std::string& sql) {
    if (sqlite3_exec(_connection.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(_connection.get());
    }
}

Json::Value sqlite_database::rows(const std::string& sql,
                                  const std::vector<std::string>& arguments) {
    const statement_owner statement = prepare(_connection.get(), sql, arguments);
    Json::Value rows(Json::arrayValue);
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        Json::Value row(Json::objectValue);
        for (int i = 0; i < sqlite3_column_count(statement.get()); ++i) {
            row[sqlite3_column_name(statement.get(), i)] = column(statement.get(), i);
        }
        rows.append(std::move(row));
    }
    if (result != SQLITE_DONE) {
        fail(_connection.get());
    }
    return rows;
}

sqlite_transaction::sqlite_transaction(sqlite_database& database) : _database(database) {
    _database.run("BEGIN IMMEDIATE");
}

sqlite_transaction::~sqlite_transaction() {
    try {
        if (_open) {
            _database.run("ROLLBACK");
        }
    } catch (const std::exception&) {
        // SQLite has rolled it back already.
        _open = false;
    }
}

void sqlite_transaction::commit() {
    _database.run("COMMIT");
    _open = false;
}

}  // namespace collector
