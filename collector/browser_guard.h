#pragma once

#include <httplib.h>

namespace collector {

/// Keeps pages of other sites from asking this server, or setting anything in it, by the browser of
/// somebody who can reach it. Takes the server's pre-routing handler and its default headers. What
/// monitoring asks for, /health and /metrics, stays open: it has nothing from a report.
void guard_against_other_sites(httplib::Server& server);

}  // namespace collector
