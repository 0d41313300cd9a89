#include "request_form.h"

#include <ctime>

#include <algorithm>
#include <array>
#include <memory>

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <zlib.h>

namespace collector {
namespace {

constexpr std::array HEADER_MEMBERS = {
    "ver",      "datetime",     "config_ver",       "DUID",       "vendor",        "manufacturer",
    "DTV_type", "product_type", "sw_version_model", "sw_version", "platform_name", "tizen_version"};

using type_test = bool (Json::Value::*)() const;

struct member_rule {
    const char* name;
    type_test has_type;
    const char* type;
};

constexpr std::array REPORT_MEMBERS = {
    member_rule{"_ID", &Json::Value::isUInt, "an unsigned integer"},
    member_rule{"module", &Json::Value::isInt, "an integer"},
    member_rule{"type", &Json::Value::isInt, "an integer"},
    member_rule{"aggregationid", &Json::Value::isUInt, "an unsigned integer"},
    member_rule{"count", &Json::Value::isUInt, "an unsigned integer"},
    member_rule{"size", &Json::Value::isUInt, "an unsigned integer"},
    member_rule{"SHA256", &Json::Value::isString, "a string"},
    member_rule{"encoding", &Json::Value::isString, "a string"},
    member_rule{"content", &Json::Value::isString, "a string"},
    member_rule{"first_time", &Json::Value::isInt64, "an integer"},
    member_rule{"last_time", &Json::Value::isInt64, "an integer"},
    member_rule{"uid", &Json::Value::isString, "a string"}};

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

std::string with_zero_digits(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
    return text;
}

bool is_version(const std::string& text) {
    std::string form = with_zero_digits(text);
    const auto both_digits = [](char left, char right) { return left == '0' && right == '0'; };
    form.erase(std::unique(form.begin(), form.end(), both_digits), form.end());
    return form == "0.0.0";
}

/// strptime alone would take numbers with fewer digits, so the form is compared too.
bool is_datetime(const std::string& text) {
    const std::string form = with_zero_digits(text);
    std::tm parts{};
    return (form == "0000-00-00T00:00:00" || form == "0000-00-00T00:00:00.000000") &&
           strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts) != nullptr;
}

void check_header(const Json::Value& header) {
    require(header.isObject(), "\"header\" is no object");
    for (const char* const member : HEADER_MEMBERS) {
        require(header[member].isString(),
                std::string("header member \"") + member + "\" is no string");
    }
    require(header.size() == HEADER_MEMBERS.size(), "the header has members of another name");
    require(is_version(header["ver"].asString()), "\"ver\" is no version");
    require(is_datetime(header["datetime"].asString()), "\"datetime\" is no ISO 8601 time");
}

request_form parse_envelope(const std::string& text) {
    Json::Value document = parse_json(text);
    require(document.isObject(), "the request is no object");
    require(document.size() == 2 && document.isMember("header") && document.isMember("body"),
            "the request does not consist of \"header\" and \"body\"");
    check_header(document["header"]);
    require(document["body"].isArray(), "\"body\" is no array");
    require(!document["body"].empty(), "\"body\" is empty");
    request_form form;
    form.header.swap(document["header"]);
    form.body.swap(document["body"]);
    return form;
}

/// Takes off the zero bytes that EVP_DecodeBlock makes of the padding. Empty text decodes to
/// nothing.
std::string decode_base64(const std::string& text) {
    require(text.size() % 4 == 0, "the content is not Base64");
    std::string decoded(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    require(length == static_cast<int>(decoded.size()), "the content is not Base64");
    const auto padding =
        std::count(text.end() - std::min<std::ptrdiff_t>(2, length), text.end(), '=');
    decoded.resize(decoded.size() - static_cast<std::size_t>(padding));
    return decoded;
}

/// Gives zlib one byte more than the declared size, so that longer content shows.
std::string inflate_declared(const std::string& deflated, std::size_t size) {
    std::string content(size + 1, '\0');
    uLongf written = content.size();
    uLong taken = deflated.size();
    const int result = uncompress2(reinterpret_cast<Bytef*>(content.data()), &written,
                                   reinterpret_cast<const Bytef*>(deflated.data()), &taken);
    require(result != Z_BUF_ERROR && (result != Z_OK || written == size),
            "the content is not of the size that \"size\" says");
    require(result == Z_OK && taken == deflated.size(), "the content is not a zlib stream");
    content.resize(size);
    return content;
}

std::string sha256_hex(const std::string& bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    std::string text;
    for (const unsigned byte : digest) {
        text += DIGITS[byte >> 4U];
        text += DIGITS[byte & 15U];
    }
    return text;
}

void check_content(const Json::Value& report) {
    require(report["encoding"].asString() == "deflate+base64", "unknown \"encoding\"");
    require(report["size"].asUInt() <= MAX_BODY_SIZE, "\"size\" is above what is accepted");
    const std::string content =
        inflate_declared(decode_base64(report["content"].asString()), report["size"].asUInt());
    require(sha256_hex(content) == report["SHA256"].asString(),
            "the content does not have the hash that \"SHA256\" says");
}

void check_report(const Json::Value& report) {
    require(report.isObject(), "it is no object");
    for (const member_rule& rule : REPORT_MEMBERS) {
        require((report[rule.name].*rule.has_type)(),
                std::string("\"") + rule.name + "\" is not " + rule.type);
    }
    require(!report.isMember("check_hash"), "\"check_hash\" is for the device alone");
    require(report["count"].asUInt() > 0, "\"count\" is 0");
    require(!report["uid"].asString().empty(), "\"uid\" is empty");
    check_content(report);
}

}  // namespace

bool is_hash(const std::string& text) {
    return text.size() == std::size_t{2} * SHA256_DIGEST_LENGTH &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

request_form parse_report_post(const std::string& text) {
    request_form form = parse_envelope(text);
    for (Json::ArrayIndex i = 0; i < form.body.size(); ++i) {
        try {
            check_report(form.body[i]);
        } catch (const malformed_request& e) {
            throw malformed_request("report " + std::to_string(i) + ": " + e.what());
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
