#pragma once

#include <map>
#include <mutex>
#include <string>

#include <httplib.h>

#include "plan.h"
#include "report_store.h"
#include "request_form.h"

namespace collector {

/// Answers the agent's two kinds of requests and prints one line for each, before its answer is
/// sent. All members may be called from several threads at once.
class request_desk {
public:
    /// Takes plan and store over.
    request_desk(answer_plan plan, report_store store);

    /// Makes the server pass its requests to this object, which has to outlive it.
    void attach(httplib::Server& server);

    /// Waits for the line or the report being written and lets no other begin. For the end of the
    /// process: it is not to be taken back.
    void close() { _mutex.lock(); }

private:
    /// How a request is to be answered.
    struct decision {
        int status = 200;
        Json::Value codes = Json::Value(Json::arrayValue);
        Json::ArrayIndex entries = 0;  ///< reports or hashes in it
        std::string reason;            ///< why it was not accepted
    };

    /// For the two endpoints, and for every request that never reaches them.
    void answer(const httplib::Request& request, httplib::Response& response);
    void refuse(const httplib::Request& request, httplib::Response& response);
    /// Counts the request; `number` is set to its place among all.
    planned_answer count_and_plan(endpoint where, unsigned& number);
    /// The answer to a request, planned or not. Takes the mutex where it uses the store.
    decision decide(endpoint where, const std::string& text, const planned_answer& planned);
    void decide_reports(const request_form& form, const planned_answer& planned, decision& made);
    void decide_hashes(const request_form& form, const planned_answer& planned, decision& made);
    /// Takes the mutex. One line on standard output, flushed.
    void print_line(unsigned number, const httplib::Request& request, const decision& made,
                    const planned_answer& planned);

    answer_plan _plan;
    std::mutex _mutex;  ///< guards all below and standard output
    report_store _store;
    unsigned _total = 0;
    std::map<endpoint, unsigned> _counts;
};

}  // namespace collector
