#include "latest_requests.h"

#include <utility>

namespace collector {
namespace {

constexpr std::size_t MOST_ROWS = 200;

}  // namespace

void latest_requests::add(Json::Value row) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _rows.push_front(std::move(row));
    if (_rows.size() > MOST_ROWS) {
        _rows.pop_back();
    }
}

Json::Value latest_requests::rows() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    Json::Value rows(Json::arrayValue);
    for (const Json::Value& row : _rows) {
        rows.append(row);
    }
    return rows;
}

}  // namespace collector
