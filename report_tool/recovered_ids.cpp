#include "recovered_ids.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <sstream>
#include <stdexcept>

#include "common.h"
#include "data_dir.h"
#include "output.h"

namespace report_tool {

recovered_ids::recovered_ids()
    : _path(reporter::REPORTER_DATA_DIR + "recovered"),
      _descriptor(open(_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (_descriptor < 0) {
        throw std::runtime_error(_path + ": " + error_text(errno));
    }
    if (flock(_descriptor, LOCK_EX | LOCK_NB) != 0) {
        close(_descriptor);
        throw std::runtime_error("another recover is under way: wait for its end");
    }
    // A line that was cut short has no second number, or one that is too small.
    std::istringstream lines(reporter::read_file_default(_path, ""));
    for (std::string line; std::getline(lines, line);) {
        double first = 0, last = 0;
        if (std::sscanf(line.c_str(), "%lf %lf", &first, &last) == 2) {
            _ranges.emplace_back(first, last);
        }
    }
}

recovered_ids::~recovered_ids() {
    close(_descriptor);
}

double recovered_ids::behind(double id) const {
    double next = id;
    for (const auto& [first, last] : _ranges) {
        if (first <= next && next <= last) {
            next = last + 1;
        }
    }
    return next;
}

void recovered_ids::add(double first, double last) {
    // The newline comes first, so that a line that a full disk or a power cut has cut short does
    // not become the beginning of the next one.
    char line[64];
    const int size = std::snprintf(line, sizeof line, "\n%.0f %.0f", first, last);
    if (write(_descriptor, line, static_cast<std::size_t>(size)) != size ||
        fdatasync(_descriptor) != 0) {
        throw std::runtime_error(_path + " cannot be written: " + error_text(errno) +
                                 ". A second run brings the latest report again");
    }
    _ranges.emplace_back(first, last);
}

}  // namespace report_tool
