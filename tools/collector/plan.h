#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <json/json.h>

namespace collector {

/// Which of the two endpoints a request came to.
enum class endpoint { REPORTS, CHECK_HASHES };

/// Where an answer breaks off, the connection closed.
enum class cut_point { NOWHERE, BEFORE_ANSWER, IN_HEAD, IN_BODY };

/// How one request is answered otherwise; as made, it changes nothing.
struct planned_answer {
    std::string text;           ///< the settings as they were written, for the request's line
    std::optional<int> status;  ///< HTTP status; other than 200, nothing is kept
    std::optional<Json::Value> codes;    ///< the array sent as "body", of any length and content
    std::optional<std::string> body;     ///< the answer's bytes, whatever was decided
    std::chrono::milliseconds delay{0};  ///< before the answer's first byte
    cut_point cut = cut_point::NOWHERE;
    bool keep = true;  ///< whether reports that are answered 200 are kept
};

/// The requests that are answered otherwise than by what they ask. Read-only once filled, hence
/// safe to ask from several threads.
class answer_plan {
public:
    /// Adds one line: NUMBER|* reports|check_hashes SETTING... (see the program's help). Throws
    /// std::invalid_argument.
    void add(const std::string& line);

    /// The first line that fits: the request is the number-th of its endpoint, counted from 1.
    planned_answer find(endpoint where, unsigned number) const;

private:
    struct entry {
        std::optional<unsigned> number;
        endpoint where = endpoint::REPORTS;
        planned_answer answer;
    };

    std::vector<entry> _entries;
};

}  // namespace collector
