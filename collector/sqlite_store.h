#pragma once

#include <mutex>

#include "report_store.h"
#include "sqlite_database.h"

namespace collector {

/// Reports in an embedded SQLite database: for one desk, and for tests, which read it meanwhile.
class sqlite_store : public report_store {
public:
    /// Makes what is missing in the file; "" is a database in memory.
    explicit sqlite_store(const std::string& path);

    receipt keep(const sender& from, const Json::Value& reports) override;
    std::vector<bool> known(const sender& from, const Json::Value& hashes) override;
    Json::Value rows(const std::string& sql, const std::vector<std::string>& arguments) override;

private:
    /// The device's number. Takes part in the transaction under way.
    std::string note_contact(const sender& from);

    std::mutex _mutex;  ///< guards the database
    sqlite_database _database;
};

}  // namespace collector
