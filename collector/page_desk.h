#pragma once

#include <string>

#include <httplib.h>

#include "latest_requests.h"
#include "request_desk.h"

namespace collector {

/// Serves the page for people: its files, the requests as they come, and where answers may be
/// planned the next ones. What else the page shows it asks of query_desk.
class page_desk {
public:
    /// The directory is that of the page's files. All have to outlive it; null: nothing may be
    /// planned.
    page_desk(std::string directory, const latest_requests& latest, request_desk* planned);

    /// Makes the server pass its requests to this object, which has to outlive it. Throws
    /// std::runtime_error when the directory cannot be served.
    void attach(httplib::Server& server);

private:
    void tell_requests(httplib::Response& response);
    void plan_answers(const httplib::Request& request, httplib::Response& response);

    const std::string _directory;
    const latest_requests& _latest;
    request_desk* const _planned;
};

}  // namespace collector
