#include "look.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "command.h"
#include "json_io.h"
#include "lua/lua_state.h"
#include "output.h"
#include "progress.h"
#include "storage/reports_storage.h"
#include "store.h"

namespace report_tool {
namespace {

constexpr std::size_t ids_in_a_question = 100;

// Empty while there is no store.
Json::Value answer_to(const std::string& question) {
    Json::Value answer = ask_store_if_any(question);
    if (answer.isMember("error")) {
        throw std::runtime_error("the store cannot be looked at, " +
                                 printable(answer["error"].asString()) +
                                 ": see what `tev-report doctor --deep` says");
    }
    return answer;
}

class inspecting_look : public look {
public:
    Json::Value times() override { return answer_to("store")["times"]; }

    std::vector<Json::Value> reports() override {
        std::vector<Json::Value> reports;
        std::string place;
        do {
            const Json::Value answer = answer_to("list " + place);
            reports.insert(reports.end(), answer["reports"].begin(), answer["reports"].end());
            place = answer["place"].asString();
        } while (!place.empty());
        return reports;
    }

    Json::Value plan() override { return answer_to("plan"); }

    void read(const std::vector<unsigned int>& ids, const reader& visit) override {
        for (std::size_t at = 0; at < ids.size();) {
            std::string question = "read";
            const std::size_t end = std::min(ids.size(), at + ids_in_a_question);
            for (std::size_t next = at; next < end; ++next) {
                question += " " + std::to_string(ids[next]);
            }
            const Json::Value texts = answer_to(question)["texts"];
            if (texts.empty()) {
                visit(ids[at++], nullptr);
            }
            for (Json::ArrayIndex next = 0; next < texts.size() && at < end; ++next) {
                const std::string text = texts[next].isString() ? texts[next].asString() : "";
                visit(ids[at++], texts[next].isString() ? &text : nullptr);
            }
        }
    }

    std::size_t calls_for(std::size_t reports) const override {
        return (reports + ids_in_a_question - 1) / ids_in_a_question;
    }
};

// As a pass looks.
class listing_look : public look {
public:
    Json::Value times() override {
        Json::Value times(Json::arrayValue);
        for (const long time : all_times()) {
            times.append(Json::objectValue)["time"] = Json::Int64{time};
        }
        return times;
    }

    std::vector<Json::Value> reports() override {
        std::vector<Json::Value> reports;
        for (const long time : all_times()) {
            const std::vector<unsigned int> ids = ids_of(time);
            progress shown(ids.size(), ids.size());
            read(ids, [&](unsigned int id, const std::string* text) {
                if (text != nullptr) {
                    reports.push_back(row_of(id, time, *text));
                }
                shown.step();
            });
        }
        return reports;
    }

    Json::Value plan() override {
        Json::Value plan;
        const std::time_t now = std::time(nullptr);
        for (const long time : all_times()) {
            if (time > now) {
                plan["later"].append(Json::Int64{time});
                continue;
            }
            Json::Value& due = plan["due"].append(Json::objectValue);
            due["time"] = Json::Int64{time};
            for (const unsigned int id : ids_of(time)) {
                due["ids"].append(id);
            }
        }
        return plan;
    }

    void read(const std::vector<unsigned int>& ids, const reader& visit) override {
        for (const unsigned int id : ids) {
            const auto text = in_turn([&]() -> std::optional<std::string> {
                try {
                    return _storage->get_report_as_json(id);
                } catch (const reporter::lua_exception&) {
                    return std::nullopt;
                }
            });
            visit(id, text ? &*text : nullptr);
        }
    }

    std::size_t calls_for(std::size_t reports) const override { return reports; }

private:
    std::vector<long> all_times() {
        return in_turn([&] { return _storage->get_all_dispatch_times(); });
    }
    std::vector<unsigned int> ids_of(long time) {
        return in_turn([&] { return _storage->get_ids_by_dispatch_time(time); });
    }
    static Json::Value row_of(unsigned int id, long time, const std::string& text) {
        Json::Value report, row;
        reporter::json_read(text, report, reporter::json_comments::skip);
        row["id"] = id;
        row["time"] = Json::Int64{time};
        for (const char* name :
             {"module", "type", "aggregationid", "count", "size", "first_time", "last_time"}) {
            if (report.isObject() && report.isMember(name)) {
                row[name] = report[name];
            }
        }
        return row;
    }

    std::shared_ptr<reporter::reports_storage> _storage = open_store();
};

}  // namespace

std::unique_ptr<look> open_look(bool allowed) {
    if (can_inspect()) {
        return std::make_unique<inspecting_look>();
    }
    if (!allowed) {
        throw refusal(
            "the storage script has no function inspect, which only looks: its other functions "
            "list reports as a pass does, so that later occurrences begin new reports, and old "
            "reports may be dropped. Add --yes if that may be");
    }
    return std::make_unique<listing_look>();
}

}  // namespace report_tool
