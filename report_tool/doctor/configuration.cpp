#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <exception>

#include <vconf.h>

#include "common.h"
#include "data_dir.h"
#include "doctor/examination.h"
#include "doctor/settings.h"
#include "http_session.h"
#include "json_io.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

// What is wrong with one file, without a cause when it can be used.
struct file_look {
    std::string cause;
    std::string text;
    Json::Value content{};
};

std::string place_of(const std::string& text, const reporter::json_fault& fault) {
    const std::size_t at = std::min(fault.offset, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(at), '\n');
    const std::size_t newline = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
    const std::size_t begin = newline == std::string::npos ? 0 : newline + 1;
    // Of a long line what is around the place.
    constexpr std::size_t shown = 80;
    const std::size_t from = at - begin > shown ? at - shown : begin;
    const std::size_t end = std::min(text.find('\n', begin), at + shown);
    return "line " + std::to_string(line) + ", column " + std::to_string(at - begin + 1) + ": " +
           fault.message + " at: " + text.substr(from, end - from);
}

file_look look_at(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        const bool missing = errno == ENOENT;
        return {missing ? "missing" : "access", error_text(errno)};
    }
    std::string text;
    try {
        text = reporter::read_file(path);
    } catch (const std::exception&) {
        return {"access", "cannot be read"};
    }
    if (const auto fault = reporter::json_find_fault(text)) {
        return {"json", place_of(text, *fault)};
    }
    file_look look;
    reporter::json_read(text, look.content, reporter::json_comments::keep);
    return look;
}

const char* advice_for(const std::string& cause) {
    return cause == "json"      ? "mend the line, or the one before it"
           : cause == "missing" ? "install the configuration"
                                : "make it readable for the agent's user";
}

// The first file that can be used, as the agent takes it.
std::optional<Json::Value> choose_file(group& configuration) {
    std::vector<std::pair<std::string, file_look>> passed_over;
    std::optional<Json::Value> chosen;
    for (const char* suffix : {"def", "rel", "stg"}) {
        std::string name = "config.";
        name += suffix;
        file_look look = look_at(reporter::build_config_path(reporter::config_dir, suffix));
        if (look.cause.empty()) {
            configuration.ok("file", name + " is used");
            chosen = look.content;
            break;
        }
        passed_over.emplace_back(name, look);
    }
    const bool none = passed_over.size() == 3;
    std::string cause = "missing";
    for (const auto& [name, look] : passed_over) {
        if (look.cause != "missing") {
            const auto tell = none ? &group::fault : &group::warning;
            (configuration.*tell)(name, look.cause, look.text, advice_for(look.cause));
            cause = look.cause;
        }
    }
    if (none) {
        configuration.fault("file", cause == "missing" ? cause : "unusable",
                            std::string("none of config.def, config.rel and config.stg in ") +
                                reporter::config_dir + " can be used",
                            advice_for(cause));
    }
    return chosen;
}

bool is_true(const Json::Value& value) {
    return value.isConvertibleTo(Json::booleanValue) && !value.isString() && value.asBool();
}

bool has_server_setting() {
    const std::unique_ptr<char, decltype(&std::free)> value(vconf_get_str(reporter::server_setting),
                                                            std::free);
    return value != nullptr && *value != '\0';
}

// Whether the agent does not come to ask for a setting that it otherwise needs.
bool is_not_needed(const setting& one, const Json::Value& sender) {
    const std::string name = one.name;
    return (name == "server_url" && is_true(sender["vxt_service"]) && has_server_setting()) ||
           (name == "agent_registered_duid" && !is_true(sender["reporter_registration"]));
}

void tell_unknown(group& configuration, const std::string& object, const Json::Value& members) {
    const std::string prefix = object.empty() ? "" : object + ".";
    for (const std::string& name : members.getMemberNames()) {
        const auto& known = known_settings();
        const bool expected = std::any_of(known.begin(), known.end(), [&](const setting& one) {
            return object == one.object ? name == one.name : object.empty() && name == one.object;
        });
        if (expected) {
            continue;
        }
        const std::string nearest = nearest_setting(object, name);
        configuration.warning(
            prefix + name, "unknown", "neither agent nor script reads it",
            nearest.empty() ? "remove it, unless the script is another" : "perhaps " + nearest);
    }
}

// The object of that name, or an empty one in its place where there is none.
Json::Value member_object(group& configuration, const Json::Value& root, const char* name) {
    const Json::Value& value = root[name];
    if (value.isObject()) {
        tell_unknown(configuration, name, value);
        return value;
    }
    configuration.fault(name, value.isNull() ? "missing" : "type",
                        value.isNull() ? "there is no such object" : "is no object",
                        "put the settings into it again");
    return Json::Value(Json::objectValue);
}

void examine_settings(group& configuration, const Json::Value& root) {
    tell_unknown(configuration, "", root);
    const Json::Value processor = member_object(configuration, root, "processor");
    const Json::Value sender = member_object(configuration, root, "sender");
    for (const setting& one : known_settings()) {
        const Json::Value& object = *one.object == '\0'                   ? root
                                    : one.object == std::string("sender") ? sender
                                                                          : processor;
        const Json::Value value = object.get(one.name, Json::Value());
        if (!value.isString() && is_not_needed(one, sender)) {
            configuration.ok(one.path(), "not set, and not needed");
        } else {
            examine_setting(configuration, one, value);
        }
    }
}

}  // namespace

void examine_configuration(examination& whole) {
    group configuration(whole, "configuration");
    const std::optional<Json::Value> root = choose_file(configuration);
    if (root && root->isObject()) {
        whole.config.emplace(*root, std::unordered_map<std::string, reporter::script>());
        examine_settings(configuration, *root);
    } else if (root) {
        configuration.fault("file", "type", "the document is no object",
                            "put the settings between { and }");
    }
}

}  // namespace report_tool::doctor
