#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <httplib.h>

#include "counters.h"
#include "latest_requests.h"
#include "plan.h"
#include "request_judge.h"

namespace collector {

/// Answers that are planned while the server runs. Their numbers count from then on.
struct next_answers {
    std::vector<std::string> lines;  ///< as they were written
    answer_plan plan;
    std::map<endpoint, unsigned> counts;  ///< requests since
};

/// Answers the agent's two kinds of requests and prints one line for each, before its answer is
/// sent. All members may be called from several threads at once.
class request_desk {
public:
    /// All but the plan have to outlive it.
    request_desk(request_judge& judge, counters& counted, latest_requests& latest,
                 answer_plan plan);

    /// Makes the server pass its requests to this object, which has to outlive it. Where the server
    /// has no TLS, a proxy before it says in the head whose certificate it has verified.
    void attach(httplib::Server& server);

    /// Waits for the line being written and lets no other begin. For the end of the process: it is
    /// not to be taken back.
    void close() { _mutex.lock(); }

    /// Takes the place of what was planned here before. What fits none of these lines is answered
    /// as the plan from the start says.
    void plan_next(next_answers next);

    /// The lines, an array of texts.
    Json::Value planned_lines();

private:
    /// For the two endpoints, and for every request that never reaches them.
    void answer(const httplib::Request& request, httplib::Response& response);
    void refuse(const httplib::Request& request, httplib::Response& response);
    /// Counts the request; `number` is set to its place among all.
    planned_answer count_and_plan(endpoint where, unsigned& number);
    /// Takes the mutex. One line on standard output, flushed.
    void print_line(unsigned number, const httplib::Request& request, const decision& made,
                    const planned_answer& planned);

    request_judge& _judge;
    counters& _counters;
    latest_requests& _latest;
    std::mutex _mutex;  ///< guards all below and standard output
    answer_plan _plan;
    next_answers _next;
    unsigned _total = 0;
    std::map<endpoint, unsigned> _counts;
};

}  // namespace collector
