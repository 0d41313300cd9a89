#pragma once

#include <map>
#include <mutex>
#include <string>

#include <httplib.h>

#include "counters.h"
#include "plan.h"
#include "request_judge.h"

namespace collector {

/// Answers the agent's two kinds of requests and prints one line for each, before its answer is
/// sent. All members may be called from several threads at once.
class request_desk {
public:
    /// Judge and counters have to outlive it.
    request_desk(request_judge& judge, counters& counted, answer_plan plan);

    /// Makes the server pass its requests to this object, which has to outlive it. Where the server
    /// has no TLS, a proxy before it says in the head whose certificate it has verified.
    void attach(httplib::Server& server);

    /// Waits for the line being written and lets no other begin. For the end of the process: it is
    /// not to be taken back.
    void close() { _mutex.lock(); }

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
    std::mutex _mutex;  ///< guards all below and standard output
    answer_plan _plan;
    unsigned _total = 0;
    std::map<endpoint, unsigned> _counts;
};

}  // namespace collector
