#include "data_dir.h"

#include "logging.h"

namespace reporter {

std::string REPORTER_DATA_DIR = "/opt/data/dpm/dplugins/tev-reporter-plugin/";

void set_reporter_data_prefix(const std::string& prefix) {
    REPORTER_DATA_DIR = prefix + REPORTER_DATA_DIR;
    REPORTER_INFO("REPORTER_DATA_DIR: " << REPORTER_DATA_DIR);
}

}  // namespace reporter
