#pragma once

#include <set>
#include <string>

#include "plan.h"
#include "report_store.h"

namespace collector {

/// How a request is to be answered.
struct decision {
    int status = 200;
    Json::Value codes = Json::Value(Json::arrayValue);
    Json::ArrayIndex entries = 0;  ///< reports or hashes in it
    std::string reason;            ///< why it, or a report in it, was not accepted
    receipt done;

    /// The answer's body.
    std::string text() const;
};

/// Decides on requests by their bodies, and has the store keep what is accepted. All members may be
/// called from several threads at once.
class request_judge {
public:
    /// The store has to outlive it. The hashes count as known beside those that the store has.
    request_judge(report_store& store, std::set<std::string> known_hashes);

    /// Reports are in the store when this returns with their code 200. Where the store is away the
    /// status is 503, so that every report stays on its device.
    decision decide(endpoint where, const std::string& client, const std::string& body,
                    const planned_answer& planned);

private:
    void take_reports(const std::string& client, const std::string& body,
                      const planned_answer& planned, decision& made);
    void look_hashes_up(const std::string& client, const std::string& body,
                        const planned_answer& planned, decision& made);

    report_store& _store;
    const std::set<std::string> _known_hashes;
};

}  // namespace collector
