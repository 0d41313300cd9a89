#include "plan.h"

#include <iomanip>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace collector {
namespace {

constexpr unsigned long MAX_NUMBER = 1'000'000'000;

unsigned to_number(const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || text.size() > 10 || std::stoul(text) > MAX_NUMBER) {
        throw std::invalid_argument("\"" + text + "\" is no number");
    }
    return static_cast<unsigned>(std::stoul(text));
}

template <typename T>
T one_of(const std::map<std::string, T>& names, const std::string& name) {
    const auto found = names.find(name);
    if (found == names.end()) {
        throw std::invalid_argument("\"" + name + "\" is unknown here");
    }
    return found->second;
}

int to_status(const std::string& text) {
    const unsigned status = to_number(text);
    if (status < 100 || status > 999) {
        throw std::invalid_argument("\"" + text + "\" is no HTTP status");
    }
    return static_cast<int>(status);
}

Json::Value to_codes(const std::string& text) {
    Json::Value codes;
    std::istringstream list("[" + text + "]");
    std::string errors;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), list, &codes, &errors)) {
        throw std::invalid_argument("the codes \"" + text + "\" are no list of JSON values");
    }
    return codes;
}

using setter = void (*)(planned_answer&, const std::string&);

const std::map<std::string, setter>& setters() {
    static const std::map<std::string, setter> SETTERS = {
        {"status", [](planned_answer& a, const std::string& v) { a.status = to_status(v); }},
        {"codes", [](planned_answer& a, const std::string& v) { a.codes = to_codes(v); }},
        {"body", [](planned_answer& a, const std::string& v) { a.body = v; }},
        {"delay", [](planned_answer& a,
                     const std::string& v) { a.delay = std::chrono::milliseconds(to_number(v)); }},
        {"cut",
         [](planned_answer& a, const std::string& v) {
             a.cut = one_of<cut_point>({{"answer", cut_point::BEFORE_ANSWER},
                                        {"head", cut_point::IN_HEAD},
                                        {"body", cut_point::IN_BODY}},
                                       v);
         }},
        {"keep",
         [](planned_answer& a, const std::string& v) {
             a.keep = one_of<bool>({{"yes", true}, {"no", false}}, v);
         }},
    };
    return SETTERS;
}

/// A value may stand in single quotes; it may then hold anything but a single quote, blanks too.
planned_answer parse_settings(const std::string& text) {
    planned_answer answer;
    answer.text = text;
    std::istringstream settings(text);
    settings >> std::noskipws;
    std::string name;
    while (std::getline(settings >> std::ws, name, '=')) {
        std::string value;
        if (!(settings >> std::quoted(value, '\'', '\0'))) {
            throw std::invalid_argument("\"" + name + "\" has no value");
        }
        one_of(setters(), name)(answer, value);
    }
    return answer;
}

}  // namespace

void answer_plan::add(const std::string& line) {
    std::istringstream words(line);
    std::string number;
    std::string where;
    std::string settings;
    if (!(words >> number >> where) || !std::getline(words >> std::ws, settings)) {
        throw std::invalid_argument("\"" + line + "\" is not NUMBER ENDPOINT SETTING...");
    }

    entry added;
    if (number != "*") {
        added.number = to_number(number);
    }
    added.where = one_of<endpoint>(
        {{"reports", endpoint::REPORTS}, {"check_hashes", endpoint::CHECK_HASHES}}, where);
    added.answer = parse_settings(settings);
    _entries.push_back(std::move(added));
}

planned_answer answer_plan::find(endpoint where, unsigned number) const {
    for (const entry& candidate : _entries) {
        if (candidate.where == where && candidate.number.value_or(number) == number) {
            return candidate.answer;
        }
    }
    return {};
}

}  // namespace collector
