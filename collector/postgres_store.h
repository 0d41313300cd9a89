#pragma once

#include <mutex>
#include <vector>

#include "postgres_connection.h"
#include "report_store.h"

namespace collector {

/// Reports in PostgreSQL, whose tables deploy/migrate makes. It has no state but its connections,
/// so any number of processes may share a database.
class postgres_store : public report_store {
public:
    /// Connects with the first call that needs it.
    explicit postgres_store(std::string url);

    receipt keep(const sender& from, const Json::Value& reports) override;
    std::vector<bool> known(const sender& from, const Json::Value& hashes) override;
    Json::Value rows(const std::string& sql, const std::vector<std::string>& arguments) override;

private:
    using connection = std::unique_ptr<postgres_connection>;

    /// An idle connection; null without one.
    connection take_idle();

    const std::string _url;
    std::mutex _mutex;  ///< guards what follows
    std::vector<connection> _idle;
};

}  // namespace collector
