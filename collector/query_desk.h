#pragma once

#include <httplib.h>

#include "counters.h"
#include "report_store.h"

namespace collector {

/// Answers questions about what the server has: for monitoring, and for a page to look at. It
/// changes nothing. Anything in an answer may come from a device, so a page has to escape all of
/// it.
class query_desk {
public:
    /// Both have to outlive it.
    query_desk(report_store& store, const counters& counted);

    /// Makes the server pass its GET requests to this object, which has to outlive it.
    void attach(httplib::Server& server);

private:
    void tell_health(httplib::Response& response);
    /// One of the queries, as {"rows": [...]}.
    void tell_rows(const char* sql, const httplib::Request& request, httplib::Response& response);

    report_store& _store;
    const counters& _counters;
};

}  // namespace collector
