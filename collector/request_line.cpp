#include "request_line.h"

#include <ctime>

#include <algorithm>
#include <map>
#include <sstream>

#include "stored_text.h"

namespace collector {
namespace {

constexpr std::size_t LONGEST_SHOWN = 300;

std::string summary(const Json::Value& codes) {
    std::map<std::string, unsigned> counts;
    for (const Json::Value& code : codes) {
        ++counts[to_text(code)];
    }
    std::string text;
    for (const auto& [code, count] : counts) {
        text += (text.empty() ? "" : ",") + code + "*" + std::to_string(count);
    }
    return text.empty() ? "-" : text;
}

/// A method and a target have no other characters; a terminal would obey some.
std::string visible(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

/// Within the line, whatever the text holds.
std::string quoted(const std::string& text) {
    return Json::valueToQuotedString(text.c_str());
}

std::string notes_on(const decision& made, const planned_answer& planned) {
    std::ostringstream notes;
    if (made.done.repeated != 0) {
        notes << " repeated=" << made.done.repeated;
    }
    for (const std::string& uid : made.done.cloned) {
        notes << " cloned=" << quoted(uid);
    }
    if (!planned.text.empty()) {
        notes << " plan=" << quoted(planned.text);
    }
    if (!made.reason.empty()) {
        notes << " reason=" << quoted(made.reason);
    }
    return notes.str();
}

std::string shown(const std::string& text) {
    return storable(text.size() <= LONGEST_SHOWN ? text : text.substr(0, LONGEST_SHOWN) + "...");
}

}  // namespace

request_line::request_line(unsigned place, const httplib::Request& request,
                           const std::string& subject, const decision& made,
                           const planned_answer& planned)
    : number(place),
      target(visible(request.method + ' ' + request.target)),
      bytes(request.body.size()),
      entries(made.entries),
      status(made.status),
      codes(summary(made.codes)),
      client(subject),
      notes(notes_on(made, planned)) {}

std::string request_line::text() const {
    std::ostringstream line;
    line << number << ' ' << target << " bytes=" << bytes << " entries=" << entries
         << " status=" << status << " codes=" << codes << " client=" << quoted(client) << notes;
    return line.str();
}

Json::Value request_line::row() const {
    Json::Value row(Json::objectValue);
    row["number"] = number;
    row["time"] = Json::Int64(std::time(nullptr));
    row["target"] = shown(target);
    row["bytes"] = Json::UInt64(bytes);
    row["entries"] = entries;
    row["status"] = status;
    row["codes"] = shown(codes);
    row["client"] = shown(client);
    row["notes"] = shown(notes);
    return row;
}

}  // namespace collector
