#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

struct pg_conn;

namespace collector {

/// One connection to PostgreSQL. Not thread-safe. Members throw std::runtime_error with its
/// message.
class postgres_connection {
public:
    /// Connects within some seconds, or throws.
    explicit postgres_connection(const std::string& url);

    /// Runs one statement, which is a transaction of its own, and gives its rows: an array of
    /// objects. The arguments are $1 and so on. A statement is prepared when it comes for the first
    /// time.
    Json::Value rows(const std::string& sql, const std::vector<std::string>& arguments = {});

    /// Whether the server has closed the connection, or went away.
    bool is_lost() const;

private:
    const std::string& prepared(const std::string& sql);

    std::unique_ptr<pg_conn, void (*)(pg_conn*)> _connection;
    std::map<std::string, std::string> _prepared;  ///< names by statement
};

}  // namespace collector
