#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <json/json.h>

namespace collector {

/// Which of the two endpoints a request came to.
enum class endpoint { REPORTS, CHECK_HASHES };

/// Where an answer breaks off and the connection is closed.
enum class cut_point { NOWHERE, BEFORE_ANSWER, IN_HEAD, IN_BODY };

/// What is different in the answer to one request. A new one changes nothing.
struct planned_answer {
    std::string text;           ///< the settings as they were written, for the request's line
    std::optional<int> status;  ///< HTTP status; other than 200, nothing is kept
    std::optional<Json::Value> codes;    ///< the array sent as "body", of any length and content
    std::optional<std::string> body;     ///< the answer's bytes, whatever was decided
    std::chrono::milliseconds delay{0};  ///< before the answer's first byte
    cut_point cut = cut_point::NOWHERE;
    bool keep = true;  ///< whether reports that are answered 200 are kept
};

/// The requests whose answer is planned, instead of following from what they send. Several threads
/// may ask it once it is filled.
class answer_plan {
public:
    /// Adds one line: NUMBER|* reports|check_hashes SETTING... (see the program's help). Throws
    /// std::invalid_argument.
    void add(const std::string& line);

    /// What the first line that fits says; a new planned_answer without one. `number` counts the
    /// requests of that endpoint, from 1.
    planned_answer find(endpoint where, unsigned number) const;

private:
    /// One line.
    struct entry {
        /// Absent: every request of the endpoint.
        std::optional<unsigned> number;
        endpoint where = endpoint::REPORTS;
        planned_answer answer;
    };

    std::vector<entry> _entries;
};

}  // namespace collector
