#include "veil.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>

#include <algorithm>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <json/value.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include "content.h"
#include "data_dir.h"
#include "json_io.h"
#include "output.h"
#include "owner.h"

namespace report_tool {
namespace {

constexpr std::size_t key_size = 32;
constexpr std::size_t long_value = 6;

constexpr const char* names[] = {"DUID",          "vendor",           "manufacturer",
                                 "product_type",  "DTV_type",         "sw_version_model",
                                 "sw_version",    "platform_name",    "tizen_version",
                                 "VENDOR",        "MANUFACTURER",     "PRODUCT_TYPE",
                                 "DTV_TYPE",      "SW_VERSION_MODEL", "SW_VERSION",
                                 "PLATFORM_NAME", "TIZEN_VERSION",    "agent_registered_duid"};

// Begin and end of a value.
using place = std::pair<std::size_t, std::size_t>;

bool is_word(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

bool is_whole_word(const std::string& text, std::size_t at, std::size_t size) {
    return (at == 0 || !is_word(text[at - 1])) &&
           (at + size == text.size() || !is_word(text[at + size]));
}

std::size_t end_of_string(const std::string& text, std::size_t at) {
    while (at < text.size() && text[at] != '"' && text[at] != '\n') {
        at += text[at] == '\\' ? 2 : 1;
    }
    return std::min(at, text.size());
}

// The value behind a name that ends there: `NAME" : "value"`, `NAME" : 12` or `NAME : value`.
place value_behind(const std::string& text, std::size_t name_end) {
    constexpr const char* white_space = " \t\r\n";
    const bool quoted = name_end < text.size() && text[name_end] == '"';
    const std::size_t colon = text.find_first_not_of(white_space, name_end + (quoted ? 1 : 0));
    if (colon == std::string::npos || text[colon] != ':') {
        return {0, 0};
    }
    const std::size_t begin = text.find_first_not_of(quoted ? white_space : " ", colon + 1);
    if (begin == std::string::npos) {
        return {0, 0};
    }
    if (quoted && text[begin] == '"') {
        return {begin + 1, end_of_string(text, begin + 1)};
    }
    return {begin, std::min(quoted ? text.find_first_not_of("-+.0123456789Ee", begin)
                                   : text.find('\n', begin),
                            text.size())};
}

std::vector<place> named_values(const std::string& text) {
    std::vector<place> places;
    for (const char* const word : names) {
        const std::string name = word;
        for (std::size_t at = text.find(name); at != std::string::npos;
             at = text.find(name, at + 1)) {
            const place value = value_behind(text, at + name.size());
            if (is_whole_word(text, at, name.size()) && value.first < value.second) {
                places.push_back(value);
            }
        }
    }
    std::sort(places.begin(), places.end());
    return places;
}

std::string without_escapes(const std::string& text) {
    Json::Value list;
    const bool read =
        text.find('\\') != std::string::npos &&
        reporter::json_read("[\"" + text + "\"]", list, reporter::json_comments::skip);
    return read && list.isArray() && list[0].isString() ? list[0].asString() : text;
}

std::string with_escapes(const std::string& text) {
    const std::string line = reporter::json_compact(text);
    return line.substr(1, line.size() - 3);  // without its quotes and its newline
}

std::string replace_all(const std::string& text, const std::string& value,
                        const std::string& hash) {
    std::string result;
    std::size_t from = 0;
    for (std::size_t at = text.find(value); at != std::string::npos; at = text.find(value, from)) {
        const bool replaced = value.size() >= long_value || is_whole_word(text, at, value.size());
        result += text.substr(from, at - from) + (replaced ? hash : value);
        from = at + value.size();
    }
    return result + text.substr(from);
}

// SHA-256 in hexadecimal, as the log has it of contents.
std::string replace_digests(const std::string& text,
                            const std::function<std::string(const std::string&)>& hash_of) {
    constexpr std::size_t digits = 64;
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0) {
            ++end;
        }
        const std::string run = text.substr(at, std::max<std::size_t>(end - at, 1));
        result += run.size() == digits ? hash_of(run) : run;
        at += run.size();
    }
    return result;
}

// In one step, so that a second process sees the whole key or none. Where it fails, errno says why.
bool keep_key(const std::string& path, const std::string& key) {
    const std::string draft = path + "." + std::to_string(getpid());
    const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const bool kept = file >= 0 && write_all(file, key) && fsync(file) == 0 &&
                      (link(draft.c_str(), path.c_str()) == 0 || errno == EEXIST);
    const int error = errno;
    if (file >= 0) {
        close(file);
        unlink(draft.c_str());
    }
    errno = error;
    return kept;
}

}  // namespace

std::string veil_key() {
    const std::string path = reporter::REPORTER_DATA_DIR + "bundle_key";
    std::string key(key_size, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(key.data()), key_size) != 1) {
        throw std::runtime_error("the key of the hashes cannot be made");
    }
    // A device whose disk is full or read-only is one of which a bundle is wanted.
    if (!read_device_file("bundle_key") && !keep_key(path, key)) {
        std::cerr << "tev-report: the key of the hashes, " << path
                  << ", cannot be kept: " << error_text(errno)
                  << ". The hashes are of this bundle alone\n";
        return key;
    }
    key = read_device_file("bundle_key").value_or("");
    if (key.size() != key_size) {
        throw std::runtime_error("the key of the hashes, " + path + ", has " +
                                 std::to_string(key.size()) + " bytes instead of " +
                                 std::to_string(key_size) + ": remove it, and a new one is made");
    }
    return key;
}

void veil::learn(const std::string& value) {
    const bool number = std::all_of(value.begin(), value.end(), [](unsigned char character) {
        return std::isdigit(character) != 0;
    });
    if (number && value.size() < long_value) {
        return;
    }
    for (const std::string& form : {value, with_escapes(value)}) {
        if (std::find(_values.begin(), _values.end(), form) == _values.end()) {
            _values.push_back(form);
        }
    }
    std::sort(_values.begin(), _values.end(), [](const std::string& one, const std::string& other) {
        return one.size() > other.size();
    });
}

void veil::learn_from(const std::string& text) {
    for (const auto& [begin, end] : named_values(text)) {
        learn(without_escapes(text.substr(begin, end - begin)));
    }
}

std::string veil::hash_of(const std::string& value) const {
    constexpr unsigned int shown_bytes = 8;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    HMAC(EVP_sha256(), _key.data(), static_cast<int>(_key.size()),
         reinterpret_cast<const unsigned char*>(value.data()), value.size(), digest, &size);
    return "hidden-" + hex({digest, digest + std::min(size, shown_bytes)});
}

std::string veil::over(const std::string& text) const {
    std::string result;
    std::size_t from = 0;
    for (const auto& [begin, end] : named_values(text)) {
        if (begin >= from) {
            result += text.substr(from, begin - from);
            result += hash_of(without_escapes(text.substr(begin, end - begin)));
            from = end;
        }
    }
    result += text.substr(from);
    for (const std::string& value : _values) {
        if (result.find(value) != std::string::npos) {
            result = replace_all(result, value, hash_of(without_escapes(value)));
        }
    }
    return replace_digests(result, [this](const std::string& digest) { return hash_of(digest); });
}

}  // namespace report_tool
