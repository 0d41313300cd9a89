#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <json/value.h>

namespace report_tool {

/// Looks at what is stored, each time in a call of the storage script that pauses as all do. What
/// it throws is std::runtime_error.
class look {
public:
    /// The text of a report, null when there is none of that id.
    using reader = std::function<void(unsigned int id, const std::string* text)>;

    look() = default;
    look(const look&) = delete;
    look& operator=(const look&) = delete;
    virtual ~look() = default;

    /// Dispatch times in their order: "time" and, where it is known, "sealed", "reports" and
    /// "occurrences".
    virtual Json::Value times() = 0;
    /// Reports in the order of sending: "id", "time" and members of their JSON, with "sealed" where
    /// it is known.
    virtual std::vector<Json::Value> reports() = 0;
    /// What a pass now is given: "due", each with "time" and "ids"; "later", times; and
    /// "dropped_reports" and "dropped_occurrences", which go for their age before.
    virtual Json::Value plan() = 0;
    /// Reads the reports with these ids, one after the other.
    virtual void read(const std::vector<unsigned int>& ids, const reader& visit) = 0;
    /// Calls of the script that reading so many reports takes at least.
    virtual std::size_t calls_for(std::size_t reports) const = 0;
};

/// By the script's function inspect, which changes nothing. A script without it is looked through
/// as a pass does it, but only if that is `allowed`: otherwise throws refusal, which says what that
/// would change.
std::unique_ptr<look> open_look(bool allowed);

}  // namespace report_tool
