#include "report_store.h"

#include <cerrno>
#include <ctime>

#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "request_form.h"

namespace collector {
namespace {

std::string utc_now() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return text.str();
}

std::string one_line(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace

report_store::report_store(const std::string& path) : _path(path) {
    if (path.empty()) {
        return;
    }
    _file.open(path, std::ios::app | std::ios::binary);
    if (!_file) {
        throw std::runtime_error("cannot write the store " + path + ": " +
                                 std::generic_category().message(errno));
    }
}

void report_store::read_known_hashes(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the known hashes " + path + ": " +
                                 std::generic_category().message(errno));
    }
    for (std::string hash; file >> hash;) {
        if (!is_hash(hash)) {
            throw std::runtime_error("the known hashes " + path +
                                     " hold what is no SHA-256 in lower case");
        }
        _hashes.insert(hash);
    }
}

void report_store::keep(const Json::Value& report, const Json::Value& header) {
    if (_file.is_open()) {
        Json::Value kept = report;
        kept["DUID"] = header["DUID"];
        kept["received_at"] = utc_now();
        _file << one_line(kept) << std::endl;
        if (!_file) {
            throw std::runtime_error("cannot write the store " + _path);
        }
    }
    _hashes.insert(report["SHA256"].asString());
}

}  // namespace collector
