#include "request_form.h"

#include <cstdint>

#include <algorithm>
#include <array>
#include <memory>

#include "report_content.h"
#include "stored_text.h"

namespace collector {
namespace {

constexpr std::array HEADER_MEMBERS = {
    "ver",      "datetime",     "config_ver",       "DUID",       "vendor",        "manufacturer",
    "DTV_type", "product_type", "sw_version_model", "sw_version", "platform_name", "tizen_version"};

/// Bytes of a header's text that are kept: what identifies a device has to fit into an index.
constexpr std::size_t LONGEST_FACT = 500;
constexpr std::size_t LONGEST_UID = 200;
constexpr std::size_t HASH_DIGITS = 64;

struct number_rule {
    const char* name;
    std::int64_t least;
    std::int64_t greatest;
};

constexpr std::array NUMBERS = {number_rule{"_ID", 0, UINT32_MAX},
                                number_rule{"module", INT16_MIN, INT16_MAX},
                                number_rule{"type", INT16_MIN, INT16_MAX},
                                number_rule{"aggregationid", 0, UINT32_MAX},
                                number_rule{"count", 1, UINT32_MAX},
                                number_rule{"size", 0, MAX_BODY_SIZE},
                                number_rule{"first_time", INT64_MIN, INT64_MAX},
                                number_rule{"last_time", INT64_MIN, INT64_MAX}};

constexpr std::array TEXTS = {"SHA256", "encoding", "content", "uid"};

void require(bool condition, const std::string& reason) {
    if (!condition) {
        throw malformed_request(reason);
    }
}

Json::Value parse_json(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    std::string errors;
    try {
        require(reader->parse(text.data(), text.data() + text.size(), &document, &errors),
                "the request is not JSON");
    } catch (const Json::Exception&) {
        throw malformed_request("the request is nested too deeply");
    }
    return document;
}

// No text is refused, nor a further member, here or beside the header: a device removes the reports
// of a refused request, so what a newer one may add must not be refused.
void check_header(const Json::Value& header) {
    require(header.isObject(), "\"header\" is no object");
    for (const char* const member : HEADER_MEMBERS) {
        require(header[member].isString(),
                std::string("header member \"") + member + "\" is no string");
    }
}

request_form parse_envelope(const std::string& text) {
    Json::Value document = parse_json(text);
    require(document.isObject(), "the request is no object");
    check_header(document["header"]);
    require(document["body"].isArray(), "\"body\" is no array");
    require(!document["body"].empty(), "\"body\" is empty");
    request_form form;
    for (const char* const member : HEADER_MEMBERS) {
        form.header[member] =
            storable(document["header"][member].asString().substr(0, LONGEST_FACT));
    }
    form.body.swap(document["body"]);
    return form;
}

void check_content(const Json::Value& report) {
    require(report["encoding"].asString() == "deflate+base64", "unknown \"encoding\"");
    const std::string content =
        decoded_content(report["content"].asString(), report["size"].asUInt());
    require(sha256_of(content) == report["SHA256"].asString(),
            "the content does not have the hash that \"SHA256\" says");
}

bool is_uid(const std::string& text) {
    return !text.empty() && text.size() <= LONGEST_UID &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

/// The members that are kept, as they are kept. jsoncpp takes 1.0 for an integer, databases do not.
Json::Value checked_report(const Json::Value& report) {
    require(report.isObject(), "it is no object");
    Json::Value kept(Json::objectValue);
    for (const number_rule& rule : NUMBERS) {
        const Json::Value& value = report[rule.name];
        require(
            value.isInt64() && value.asInt64() >= rule.least && value.asInt64() <= rule.greatest,
            std::string("\"") + rule.name + "\" is no integer from " + std::to_string(rule.least) +
                " to " + std::to_string(rule.greatest));
        kept[rule.name] = Json::Int64(value.asInt64());
    }
    for (const char* const name : TEXTS) {
        require(report[name].isString(), std::string("\"") + name + "\" is no string");
        kept[name] = report[name];
    }
    require(!report.isMember("check_hash"), "\"check_hash\" is for the device alone");
    require(is_uid(kept["uid"].asString()), "\"uid\" is not 1 to 200 visible characters");
    if (report["clock"].isString()) {
        kept["clock"] = storable(report["clock"].asString());
    }
    check_content(kept);
    return kept;
}

}  // namespace

bool is_hash(const std::string& text) {
    return text.size() == HASH_DIGITS &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

request_form parse_report_post(const std::string& text) {
    request_form form = parse_envelope(text);
    for (Json::ArrayIndex i = 0; i < form.body.size(); ++i) {
        try {
            form.body[i] = checked_report(form.body[i]);
        } catch (const malformed_request& e) {
            form.faults[i] = e.what();
        }
    }
    return form;
}

request_form parse_hash_check(const std::string& text) {
    request_form form = parse_envelope(text);
    for (const Json::Value& hash : form.body) {
        require(hash.isString() && is_hash(hash.asString()), "an entry is no SHA-256");
    }
    return form;
}

}  // namespace collector
