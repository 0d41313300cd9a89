#include "report_store.h"

#include "postgres_store.h"
#include "sqlite_store.h"

namespace collector {

bool is_server(const std::string& place) {
    return place.rfind("postgresql://", 0) == 0 || place.rfind("postgres://", 0) == 0;
}

std::unique_ptr<report_store> open_store(const std::string& place) {
    if (is_server(place)) {
        return std::make_unique<postgres_store>(place);
    }
    return std::make_unique<sqlite_store>(place);
}

std::string to_text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace collector
