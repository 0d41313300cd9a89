#include "input.h"

#include <cstdint>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>

#include "base64.h"

namespace {

/// 0 when the member is absent.
template <class T>
T read_number(const Json::Value& line, const char* name) {
    const Json::Value value = line.get(name, 0);
    if (!value.isInt64() || value.asInt64() < std::numeric_limits<T>::min() ||
        value.asInt64() > std::numeric_limits<T>::max()) {
        throw std::runtime_error(std::string("\"") + name + "\" is no number or out of range");
    }
    return static_cast<T>(value.asInt64());
}

std::string read_string(const Json::Value& line, const char* name) {
    if (!line.isObject() || !line[name].isString()) {
        throw std::runtime_error(std::string("\"") + name + "\" is missing or no string");
    }
    return line[name].asString();
}

/// Bytes that do not compress. The same size and seed give the same bytes on every machine.
std::string generate(std::uint32_t size, std::uint32_t seed) {
    std::mt19937 source(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(source());
    }
    return bytes;
}

std::string read_content(const Json::Value& line) {
    if (line.isMember("size")) {
        return generate(read_number<std::uint32_t>(line, "size"),
                        read_number<std::uint32_t>(line, "seed"));
    }
    if (line.isMember("content_base64")) {
        const std::string text = read_string(line, "content_base64");
        return reporter::base64_decode(text.data(), static_cast<unsigned int>(text.size()));
    }
    return read_string(line, "content");
}

}  // namespace

reporter::report read_report(const Json::Value& line) {
    const std::string content = read_content(line);
    reporter::report record;
    record.module = read_number<std::int16_t>(line, "module");
    record.type = read_number<std::int16_t>(line, "type");
    record.content.assign(content.begin(), content.end());
    record.aggregationid = read_number<std::uint32_t>(line, "aggregationid");
    return record;
}

reporter::ext_aggregation_data read_names(const Json::Value& names) {
    return {read_string(names, "caller"), read_string(names, "filehash")};
}
