#include "plan.h"

#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

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

std::string to_body(const std::string& text) {
    if (text.empty() || text.front() != '@') {
        return text;
    }
    std::ifstream file(text.substr(1), std::ios::binary);
    if (!file) {
        throw std::invalid_argument("cannot read the body " + text.substr(1));
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

std::pair<std::string, std::string> to_header(const std::string& text) {
    const std::size_t colon = text.find(": ");
    if (colon == std::string::npos || colon == 0) {
        throw std::invalid_argument("the header \"" + text + "\" is not \"Name: value\"");
    }
    return {text.substr(0, colon), text.substr(colon + 2)};
}

using setter = void (*)(planned_answer&, const std::string&);

const std::map<std::string, setter>& setters() {
    static const std::map<std::string, setter> SETTERS = {
        {"status", [](planned_answer& a, const std::string& v) { a.status = to_status(v); }},
        {"codes", [](planned_answer& a, const std::string& v) { a.codes = to_codes(v); }},
        {"body", [](planned_answer& a, const std::string& v) { a.body = to_body(v); }},
        {"delay", [](planned_answer& a,
                     const std::string& v) { a.delay = std::chrono::milliseconds(to_number(v)); }},
        {"drip", [](planned_answer& a,
                    const std::string& v) { a.drip = std::chrono::milliseconds(to_number(v)); }},
        {"cut",
         [](planned_answer& a, const std::string& v) {
             a.cut = one_of<cut_point>({{"answer", cut_point::BEFORE_ANSWER},
                                        {"head", cut_point::IN_HEAD},
                                        {"body", cut_point::IN_BODY}},
                                       v);
         }},
        {"garbage", [](planned_answer& a, const std::string& v) { a.garbage = to_number(v); }},
        {"header",
         [](planned_answer& a, const std::string& v) { a.headers.push_back(to_header(v)); }},
        {"keep",
         [](planned_answer& a, const std::string& v) {
             a.keep = one_of<bool>({{"yes", true}, {"no", false}}, v);
         }},
    };
    return SETTERS;
}

/// A value may stand in single quotes and then holds blanks and anything but a single quote.
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
    if (!(words >> number) || number.front() == '#') {
        return;
    }
    if (!(words >> where) || !std::getline(words >> std::ws, settings)) {
        throw std::invalid_argument("\"" + line + "\" is not NUMBER ENDPOINT SETTING...");
    }

    entry added;
    if (number != "*") {
        added.number = to_number(number);
    }
    if (where != "*") {
        added.where = one_of<endpoint>(
            {{"reports", endpoint::REPORTS}, {"check_hashes", endpoint::CHECK_HASHES}}, where);
    }
    added.answer = parse_settings(settings);
    _entries.push_back(std::move(added));
}

void answer_plan::add_all(std::istream& lines) {
    std::string line;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        try {
            add(line);
        } catch (const std::invalid_argument& e) {
            throw std::invalid_argument("line " + std::to_string(number) + ": " + e.what());
        }
    }
}

planned_answer answer_plan::find(endpoint where, unsigned number, unsigned total) const {
    for (const entry& candidate : _entries) {
        const bool fits_where = !candidate.where || *candidate.where == where;
        const unsigned counted = candidate.where ? number : total;
        if (fits_where && (!candidate.number || *candidate.number == counted)) {
            return candidate.answer;
        }
    }
    return {};
}

}  // namespace collector
