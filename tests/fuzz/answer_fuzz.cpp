#include <algorithm>
#include <set>

#include "fuzz.h"
#include "json_io.h"
#include "sending.h"

namespace {

bool allows_removal(const Json::Value& code, bool is_post) {
    const int value = code.isConvertibleTo(Json::intValue) ? code.asInt() : 0;
    return is_post ? value == 200 || value == 400 : value == 1;
}

// An entry is a report or its hash; as hash, the reports here have their ids.
unsigned int id_of(const Json::Value& entry) {
    return entry.isObject() ? entry["_ID"].asUInt()
                            : static_cast<unsigned int>(std::stoul(entry.asString()));
}

// The ids that one answer allows to remove.
void judge(int status, const std::string& reply, const Json::Value& entries, bool is_post,
           std::set<unsigned int>& allowed) {
    Json::Value response;
    reporter::json_read(status == 200 ? reply : "null", response, reporter::json_comments::skip);
    std::vector<Json::Value> codes;
    for (const Json::Value& code : response.isObject() ? response["body"] : Json::Value()) {
        codes.push_back(code);
    }
    for (Json::ArrayIndex i = 0; i < entries.size(); ++i) {
        if (i < codes.size() ? allows_removal(codes[i], is_post) : is_post && status == 400) {
            allowed.insert(id_of(entries[i]));
        }
    }
}

}  // namespace

// Input: a line with the status of the pre-check, a line with its answer, a line with the status of
// the post, and its answer to the end. Where a status is no number, the request cannot even begin.
void fuzz_one(const std::string& input) {
    std::string rest = input;
    const std::string check_status = take_line(rest);
    const std::string check_answer = take_line(rest);
    const std::string post_status = take_line(rest);
    std::set<unsigned int> allowed;
    sending cycle{{R"({"check_hash": 1, "SHA256": "1"})", R"({"module": 2})",
                   R"({"check_hash": 1, "SHA256": "3", "count": 3})", R"({"module": -1})"},
                  nullptr,
                  {}};
    cycle.answer = [&](const std::string& path, const Json::Value& entries, std::string& reply) {
        const bool is_post = path == "reports";
        const int status = std::stoi(is_post ? post_status : check_status);
        reply = is_post ? rest : check_answer;
        judge(status, reply, entries, is_post, allowed);
        return status;
    };
    try {
        cycle.run();
    } catch (const std::exception&) {
        // The cycle ends here. What was removed before stays removed.
    }
    const std::set<unsigned int> removed(cycle.removed.begin(), cycle.removed.end());
    assert(removed.size() == cycle.removed.size());
    assert(std::includes(allowed.begin(), allowed.end(), removed.begin(), removed.end()));
}
