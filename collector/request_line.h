#pragma once

#include <string>

#include <httplib.h>

#include "plan.h"
#include "request_judge.h"

namespace collector {

/// What the log and the page tell of one request.
struct request_line {
    request_line(unsigned number, const httplib::Request& request, const std::string& client,
                 const decision& made, const planned_answer& planned);

    /// Without the newline, and with none inside, whatever the request holds.
    std::string text() const;

    /// Its members with the time, in seconds since 1970. Long texts are cut.
    Json::Value row() const;

    unsigned number;
    std::string target;  ///< method and target as it was sent; a decoded one might hold a newline
    std::size_t bytes;
    Json::ArrayIndex entries;
    int status;
    std::string codes;   ///< and how often each occurs, as "200*11,503*1"; "-" for none
    std::string client;  ///< subject of its certificate
    std::string notes;   ///< what few requests have, each after a blank
};

}  // namespace collector
