#include "pass_log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <iostream>
#include <iterator>

#include "output.h"

namespace report_tool {
namespace {

constexpr const char* post_request = "try to do post request( ";

// More do not fit into one body, so a line that says so is damaged.
constexpr std::size_t most_in_a_chunk = 1U << 18U;

bool begins(const std::string& text, const char* start) {
    return text.compare(0, std::strlen(start), start) == 0;
}

// The number behind a word of the text; 0 without one.
double number_behind(const std::string& text, const char* word) {
    const auto at = text.find(word);
    return at == std::string::npos ? 0
                                   : std::strtod(text.c_str() + at + std::strlen(word), nullptr);
}

unsigned int id_behind(const std::string& text, const char* word) {
    return static_cast<unsigned int>(number_behind(text, word));
}

// Of "11-24 21:05:59.123" or "2026-11-24 21:05:59.123" at the start of a line. One year is taken
// for all without one, as only differences matter.
std::optional<double> time_of(const std::string& head) {
    constexpr int years_since_1900 = 126;
    std::tm date{};
    const char* rest = strptime(head.c_str(), "%Y-%m-%d %H:%M:%S", &date);
    if (rest == nullptr) {
        date = {};
        date.tm_year = years_since_1900;
        rest = strptime(head.c_str(), "%m-%d %H:%M:%S", &date);
    }
    if (rest == nullptr) {
        return std::nullopt;
    }
    const double fraction = *rest == '.' ? std::strtod(rest, nullptr) : 0;
    return static_cast<double>(timegm(&date)) + fraction;
}

// "I/TAG( 123): …" has it behind the tag, "… P 123 T 124 I TAG: …" before.
int process_of(const std::string& head, std::size_t tag, std::size_t tag_size) {
    const std::size_t behind = tag + tag_size;
    if (behind < head.size() && head[behind] == '(') {
        return std::atoi(head.c_str() + behind + 1);
    }
    for (std::size_t at = head.find(' '); at < tag; at = head.find(' ', at + 1)) {
        const std::string word = head.substr(at + 1, head.find(' ', at + 1) - at - 1);
        if (!word.empty() && is_number(word)) {
            return std::atoi(word.c_str());
        }
    }
    return 0;
}

// A time as ctime gives it, in the form of this program's other times.
std::string due_time(const std::string& text) {
    std::tm local{};
    char shown[32];
    if (strptime(text.c_str(), "%a %b %d %H:%M:%S %Y", &local) == nullptr ||
        std::strftime(shown, sizeof shown, "%Y-%m-%d %H:%M:%S", &local) == 0) {
        return text;
    }
    return shown;
}

// A failed transfer without how long it took and how much was sent, by which tries differ.
std::string without_figures(const std::string& text) {
    const std::size_t time = text.find(" time:"), result = text.find(" curl:");
    return time < result && result != std::string::npos ? text.substr(0, time) + text.substr(result)
                                                        : text;
}

}  // namespace

std::optional<log_line> read_log_line(const std::string& line) {
    constexpr const char* tag = "TEV_REPORTER";
    constexpr const char* mark = " > PROCESSOR :rss ";
    const std::size_t message = line.find(mark), tag_at = line.find(tag);
    if (message == std::string::npos || tag_at > message || tag_at < 2) {
        return std::nullopt;
    }
    const std::size_t figure = message + std::strlen(mark);
    const std::size_t text = line.find(' ', figure);
    const std::string head = line.substr(0, message);
    return log_line{line[tag_at - 2], process_of(head, tag_at, std::strlen(tag)), time_of(head),
                    text == std::string::npos ? "" : line.substr(text + 1)};
}

std::vector<unsigned int> sent_chunk::uploaded() const {
    std::vector<unsigned int> rest;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(rest), [this](unsigned int id) {
        return std::find(known.begin(), known.end(), id) == known.end();
    });
    return rest;
}

void print_complaints(const std::vector<told>& complaints) {
    for (const told& one : complaints) {
        const bool error = one.priority == 'E';
        std::cout << "  "
                  << in_colour(error ? colour::red : colour::yellow, error ? "error" : "warning")
                  << ": " << printable(one.text);
        if (one.times > 1) {
            std::cout << " (" << one.times << " times)";
        }
        std::cout << '\n';
    }
}

void process_log::begin_step(const std::string& name) {
    for (sent_chunk& chunk : steps.back().chunks) {
        chunk.ended = true;
    }
    steps.push_back({name});
    _ids.clear();
    _read_ids.clear();
    _next_id = 0;
}

void process_log::note_complaint(const log_line& line) {
    const std::string text = without_figures(line.text);
    const auto known = std::find_if(complaints.begin(), complaints.end(), [&](const told& one) {
        return one.priority == line.priority && one.text == text;
    });
    if (known != complaints.end()) {
        ++known->times;
    } else {
        complaints.push_back({line.priority, text, 1});
    }
}

void process_log::add_to_request(const std::string& text) {
    auto& chunks = steps.back().chunks;
    if (chunks.empty()) {
        chunks.emplace_back();
    }
    auto& requests = chunks.back().requests;
    if (begins(text, post_request)) {
        const std::size_t begin = std::strlen(post_request);
        requests.push_back({text.substr(begin, text.rfind(" )") - begin)});
    } else if (!requests.empty() && begins(text, "current try: ")) {
        ++requests.back().tries;
    } else if (!requests.empty() && text.find(" time:") != std::string::npos &&
               text.find(" sent:") != std::string::npos) {
        posted& request = requests.back();
        const bool answered = text.find(" http:") != std::string::npos;
        request.status = static_cast<int>(answered ? number_behind(text, " http:")
                                                   : -number_behind(text, " curl:"));
        const std::size_t error = text.find(" ! ");
        request.error = answered || error == std::string::npos ? "" : text.substr(error + 3);
        request.bytes = static_cast<long>(number_behind(text, " sent:"));
        request.seconds += number_behind(text, " time:");
        steps.back().requests_seconds += number_behind(text, " time:");
    }
}

void process_log::add_to_chunk(const std::string& text) {
    auto& chunks = steps.back().chunks;
    if (begins(text, "count reports before checking hashes: ")) {
        const auto told = std::min<std::size_t>(id_behind(text, ": "), most_in_a_chunk);
        const auto size = std::min(told, _read_ids.size());
        const auto end = _read_ids.begin() + static_cast<std::ptrdiff_t>(size);
        if (!chunks.empty()) {
            chunks.back().ended = true;
        }
        // One without reports is sent where the first report is at the limit; it posts nothing.
        if (told > 0) {
            chunks.push_back({{_read_ids.begin(), end}});
            chunks.back().ids.resize(told);
        }
        _read_ids.erase(_read_ids.begin(), end);
    } else if (chunks.empty() && !begins(text, post_request)) {
        return;
    } else if (begins(text, "ID: ")) {
        chunks.back().known.push_back(id_behind(text, "ID: "));
    } else if (begins(text, "codes: ")) {
        _codes_left = static_cast<long>(number_behind(text, "codes: "));
    } else if (_codes_left > 0 && is_number(text)) {
        --_codes_left;
        chunks.back().codes.push_back(static_cast<int>(std::strtoul(text.c_str(), nullptr, 10)));
    } else {
        add_to_request(text);
    }
}

void process_log::add(const log_line& line) {
    const std::string& text = line.text;
    if (line.priority == 'W' || line.priority == 'E') {
        note_complaint(line);
    }
    is_pass = is_pass || begins(text, post_request) ||
              text.find("report_sender_module") != std::string::npos;
    if (begins(text, "processor pid:")) {
        is_pass = true;
        steps.front().name = "start";
    } else if (begins(text, "Sending reports canceled. ")) {
        gate = text;
    } else if (text == "get_all_dispatch_times") {
        begin_step("listing times");
    } else if (begins(text, "time expired: ")) {
        begin_step("due " + due_time(text.substr(std::strlen("time expired: "))));
    } else if (begins(text, "stopping module: ")) {
        stopped = !_over;
    } else if (begins(text, "waited ")) {
        _over = true;
    } else if (begins(text, "report_sender_module_policy::finish")) {
        finished = !stopped;
        begin_step("end");
    } else if (begins(text, "count ids in cursor: ")) {
        steps.back().reports = id_behind(text, ": ");
    } else if (begins(text, "id: ") && is_number(text.substr(4))) {
        _ids.push_back(id_behind(text, "id: "));
    } else if (begins(text, "chunk_index: ")) {
        ++_next_id;
    } else if (begins(text, "JSON size: ") && _next_id > 0 && _next_id <= _ids.size()) {
        _read_ids.push_back(_ids[_next_id - 1]);
    } else if (begins(text, "save_report func result: ")) {
        ++(id_behind(text, ": ") != 0 ? saved : refused);
    } else {
        add_to_chunk(text);
    }
    pass_step& step = steps.back();
    step.pauses += text == "slow down" ? 1 : 0;
    step.begin = step.begin ? step.begin : line.time;
    step.end = line.time ? line.time : step.end;
}

}  // namespace report_tool
