#pragma once

#include <deque>
#include <mutex>

#include <json/json.h>

namespace collector {

/// The latest requests of this process, for people to look at. All members may be called from
/// several threads at once.
class latest_requests {
public:
    /// A row as request_line makes it.
    void add(Json::Value row);

    /// An array, the latest first.
    Json::Value rows() const;

private:
    mutable std::mutex _mutex;  ///< guards the rows
    std::deque<Json::Value> _rows;
};

}  // namespace collector
