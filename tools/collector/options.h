#pragma once

#include <string>

#include "plan.h"
#include "tls.h"

namespace collector {

/// The command line. An empty path: not given.
struct options {
    std::string port_file;
    tls_files tls;
    std::string known_hashes;  ///< file of contents already known, one hash a line
    std::string store;         ///< file to which accepted reports are appended
    answer_plan plan;
};

/// Reads the command line. Prints the help and ends the process when that is asked for. Throws a
/// std::exception with a sentence about what cannot be understood.
options parse_options(int argc, char* argv[]);

}  // namespace collector
