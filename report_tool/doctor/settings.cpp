#include "doctor/settings.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "edit_distance.h"
#include "json_io.h"

namespace report_tool::doctor {
namespace {

const char* const type_names[] = {"text", "number", "true or false"};

std::string type_of(const Json::Value& value) {
    return value.isString()    ? "a text"
           : value.isBool()    ? "true or false"
           : value.isNumeric() ? "a number"
           : value.isArray()   ? "a list"
                               : "an object";
}

std::string written(const Json::Value& value) {
    std::string text = reporter::json_compact(value);
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

// What is set, of which type it has to be, and what counts where it is not set.
std::string described(const setting& one, const Json::Value& value) {
    return (value.isNull() ? "not set" : written(value)) + " (" +
           type_names[static_cast<int>(one.type)] +
           (one.fallback == nullptr ? ", no default)"
                                    : std::string(", default ") + one.fallback + ")");
}

// As the JSON library converts for the agent.
bool fits(const setting& one, const Json::Value& value) {
    switch (one.type) {
        case kind::text:
            return value.isString();
        case kind::truth:
            return value.isBool() || value.isNumeric();
        case kind::number:
            return one.who == reader::script ? value.isNumeric()
                                             : value.isBool() || value.isInt64() ||
                                                   (value.isDouble() && value.asDouble() < 9.2e18 &&
                                                    value.asDouble() > -9.2e18);
    }
    return false;
}

void tell_misfit(group& configuration, const setting& one, const Json::Value& value) {
    const std::string wanted = type_names[static_cast<int>(one.type)];
    const std::string found = written(value) + " is " + type_of(value) + ", expected: " + wanted;
    const std::string advice =
        one.type == kind::text ? "put it in quotes" : "write it without quotes";
    if (one.who == reader::script) {
        configuration.warning(one.path(), "type", found + ": taken as 0", advice);
    } else if (one.type == kind::text && one.fallback != nullptr) {
        configuration.warning(one.path(), "type", found + ": taken as " + one.fallback, advice);
    } else {
        configuration.fault(one.path(), "type", found, advice);
    }
}

struct range {
    const char* path;
    long long least;
    long long most;
};
// Zero stands for "no bound" in the first.
constexpr range ranges[] = {{"db_max_size", 262144, 4294967295},
                            {"sender.sending_timeout", 30, 1800},
                            {"sender.max_count_sending_tries", 1, 10}};

// What is used in place of the number, or the number itself.
long long used_instead(const std::string& path, long long value) {
    if (path == "db_max_size" && value == 0) {
        return value;
    }
    for (const range& one : ranges) {
        if (path == one.path) {
            return std::clamp(value, one.least, one.most);
        }
    }
    return value;
}

void tell_number(group& configuration, const setting& one, const Json::Value& value) {
    const auto number = static_cast<long long>(value.asDouble());
    const std::string path = one.path(), text = written(value);
    const long long kept = one.who == reader::script ? std::max(number, 0LL)
                                                     : static_cast<unsigned int>(value.asInt64());
    if (const long long used = used_instead(path, kept); used != number) {
        configuration.warning(path,
                              kept == number ? "clamped"
                              : number < 0   ? "negative"
                                             : "overflow",
                              text + " is taken as " + std::to_string(used),
                              "write a number within the bounds");
    } else if (path == "sender.max_body_size" && number == 0) {
        configuration.warning(path, "zero", "0: each report goes in a request of its own",
                              "set it, 524288 for instance");
    } else {
        configuration.ok(path, described(one, value));
    }
}

bool is_schedule(const std::string& text) {
    static const std::regex period("[0-9]{1,9}"), time("([01][0-9]|2[0-3]):[0-5][0-9]");
    if (std::regex_match(text, period)) {
        return true;
    }
    // One by one, as a match needs stack for each character.
    std::istringstream times(text);
    bool sound = !text.empty() && text.back() != ',';
    for (std::string one; std::getline(times, one, ',');) {
        sound = sound && std::regex_match(one, time);
    }
    return sound;
}

void tell_text(group& configuration, const setting& one, const Json::Value& value) {
    if (one.path() == "processor.dispatching_time" && !is_schedule(value.asString())) {
        configuration.warning(one.path(), "schedule",
                              written(value) + " is no schedule: 03:00 is used instead",
                              R"(write "0", a number of seconds, or "HH:MM,HH:MM")");
    } else {
        configuration.ok(one.path(), described(one, value));
    }
}

}  // namespace

const std::vector<setting>& known_settings() {
    static const std::vector<setting> settings = {
        {"", "db_max_size", kind::number, reader::agent, "0, without bound"},
        {"processor", "dispatching_time", kind::text, reader::agent, nullptr},
        {"processor", "dispatching_spread", kind::number, reader::script, "0"},
        {"processor", "check_hash_min_size", kind::number, reader::script, "0, never"},
        {"processor", "max_age_days", kind::number, reader::script, "0, never"},
        {"sender", "server_url", kind::text, reader::agent, nullptr},
        {"sender", "server_port", kind::text, reader::agent, nullptr},
        {"sender", "vxt_service", kind::truth, reader::agent, "false"},
        {"sender", "reports_path", kind::text, reader::agent, "reports"},
        {"sender", "check_hashes_path", kind::text, reader::agent, "check_hashes"},
        {"sender", "sending_timeout", kind::number, reader::agent, "30"},
        {"sender", "max_count_sending_tries", kind::number, reader::agent, "1"},
        {"sender", "max_body_size", kind::number, reader::agent,
         "0, each report in a request of its own"},
        {"sender", "config_version", kind::text, reader::agent, nullptr},
        {"sender", "reporter_registration", kind::truth, reader::agent, "false"},
        {"sender", "agent_registered_duid", kind::text, reader::agent, nullptr},
        {"sender", "reporter_sending", kind::truth, reader::agent, "false"},
    };
    return settings;
}

void examine_setting(group& configuration, const setting& one, const Json::Value& value) {
    if (value.isNull() && one.fallback == nullptr) {
        configuration.fault(one.path(), "missing", "is not set, and has no default", "set it");
    } else if (value.isNull() || (one.type == kind::truth && fits(one, value))) {
        configuration.ok(one.path(), described(one, value));
    } else if (!fits(one, value)) {
        tell_misfit(configuration, one, value);
    } else if (one.type == kind::number) {
        tell_number(configuration, one, value);
    } else {
        tell_text(configuration, one, value);
    }
}

std::string nearest_setting(const std::string& object, const std::string& name) {
    constexpr std::size_t near = 3;
    std::string nearest;
    std::size_t least = std::min(near + 1, name.size());
    for (const setting& one : known_settings()) {
        const std::size_t away = edit_distance(name, one.name);
        if (object == one.object && away < least) {
            least = away;
            nearest = one.path();
        }
    }
    return nearest;
}

}  // namespace report_tool::doctor
