#pragma once

#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

struct sqlite3;

namespace collector {

/// One connection to an SQLite database. Not thread-safe. Members throw std::runtime_error with
/// SQLite's message.
class sqlite_database {
public:
    /// Opens or makes the file; "" is a database in memory. Waits up to five seconds for another
    /// process.
    explicit sqlite_database(const std::string& path);

    /// Runs statements that have neither arguments nor rows.
    void run(const std::string& sql);

    /// Runs one statement, whose arguments are $1 and so on, and gives its rows: an array of
    /// objects.
    Json::Value rows(const std::string& sql, const std::vector<std::string>& arguments = {});

private:
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> _connection;
};

/// A transaction from its construction to commit(). Without that nothing of it stays.
class sqlite_transaction {
public:
    explicit sqlite_transaction(sqlite_database& database);
    ~sqlite_transaction();
    sqlite_transaction(const sqlite_transaction&) = delete;
    sqlite_transaction& operator=(const sqlite_transaction&) = delete;

    void commit();

private:
    sqlite_database& _database;
    bool _open = true;
};

}  // namespace collector
