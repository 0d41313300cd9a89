#pragma once

#include <functional>
#include <string>
#include <vector>

#include <json/value.h>

/// A sending cycle in which the target plays both the store and the server.
struct sending {
    /// The texts of the reports, which have the ids 1, 2 and so on.
    std::vector<std::string> reports;
    /// Answers a request with its HTTP status; `entries` is the request's "body".
    std::function<int(const std::string& path, const Json::Value& entries, std::string& reply)>
        answer;
    /// The ids that were removed from the store, in that order.
    std::vector<unsigned int> removed;

    /// Runs the cycle. Throws what ends it early.
    void run();
};
