#pragma once

#include <optional>
#include <set>
#include <string>

#include "listen_address.h"
#include "plan.h"
#include "tls.h"

namespace collector {

/// The command line. An empty path: not given.
struct options {
    listen_address listen{"0"};
    std::optional<listen_address> status;  ///< absent: nobody can ask
    std::optional<tls_files> tls;          ///< absent: a proxy before this program has it
    std::string store;
    std::string port_file;
    std::string page;          ///< directory of the page's files
    std::string known_hashes;  ///< file of contents known beside the store's
    answer_plan plan;
};

/// Reads the command line. Prints the help and ends the process when that is asked for. Throws a
/// std::exception with a sentence about what cannot be understood.
options parse_options(int argc, char* argv[]);

/// The hashes that a file holds, one a line; none without a path. Throws std::runtime_error.
std::set<std::string> read_hashes(const std::string& path);

}  // namespace collector
