#pragma once

#include <memory>
#include <optional>

#include <httplib.h>

#include "tls.h"

namespace collector {

/// A server on a socket that listens already, with TLS where there are files for it. Throws
/// std::runtime_error when these cannot be used.
std::unique_ptr<httplib::Server> make_server(int socket, const std::optional<tls_files>& tls);

/// Serves on a thread of its own. Where it can no longer take connections the process ends.
void serve_beside(httplib::Server& server);

}  // namespace collector
