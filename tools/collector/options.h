#pragma once

#include <string>

#include "plan.h"
#include "tls.h"

namespace collector {

struct options {
    std::string port_file;
    tls_files tls;
    std::string known_hashes;
    std::string store;
    answer_plan plan;
};

/// Reads the command line. Prints the help and ends the process when that is asked for. Throws
/// an exception with a sentence about what cannot be understood or read.
options parse_options(int argc, char* argv[]);

}  // namespace collector
