#pragma once

#include <optional>
#include <vector>

#include <json/value.h>

#include "look.h"

namespace CLI {
class App;
}

namespace report_tool {

/// Which reports a command is about, by its options.
struct selection {
    std::optional<int> module{};
    std::optional<int> type{};
    bool due = false;
    bool yes = false;  ///< the look may be one that changes something

    void add_options(CLI::App& app);
    /// Rows of look::reports() that are meant, by time and id.
    std::vector<Json::Value> reports_of(look& store) const;
};

/// Adds the option that allows a look to change something.
void add_yes(CLI::App& app, bool& yes);

/// Adds --due.
void add_due(CLI::App& app, bool& due);

bool is_due(const Json::Value& time);

}  // namespace report_tool
