#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <limits>
#include <map>
#include <set>

#include "base64.h"
#include "compression.h"
#include "json_io.h"
#include "sha256.h"
#include "storage/store_test.h"
#include "support/children.h"

using namespace test_support;
using ids = std::vector<unsigned>;

// Makes the script show its accounts and the count of each report, as the report with the id 0.
const std::string LOOK = R"(
local read = get_report_as_json_by_id
function get_report_as_json_by_id(id)
    if id ~= 0 then return read(id) end
    return serve(function()
        local shown = database.row("select saved, joined, refused, removed, dropped_space, "
            .. "dropped_age, latest_day, listed_days, next_id FROM accounts")
        database.each(function(row) shown[row.id] = row.count end,
            "select id || '' AS id, count FROM reports")
        shown.check = database.row("PRAGMA integrity_check").integrity_check
        shown.pages, shown.free = page_count(), free_pages()
        return json.encode(shown)
    end)
end
)";

// Contents with caller "cN" and file hash "f" for the first two.
const std::string TEXTS[] = {
    R"({"caller": "c0", "filehash": "f"})", R"({"filehash": "f", "x": [1], "caller": "c1"})",
    R"({"caller": "c2", "filehash": 1})", R"(["caller", "c3", "filehash", "f"])"};

// A plain model of the store. Random calls go to both, and afterwards both have the same. A call
// that was killed, or a save on a full disk, happened wholly or not at all.
class store_model : public store_test {
protected:
    // Dispatch time, and which batch of that time.
    using batch_key = std::pair<long, unsigned>;
    struct kept {
        reporter::report report;
        long count, first, last, day;
        batch_key batch;
        bool sealed, moved;
    };
    // Bytes of a page; pages that one call gives back at most, that a report takes beyond those of
    // its content, and that an empty store has.
    static constexpr long PAGE = 4096, STEP = 32, SLACK = 24, EMPTY = 8;
    static constexpr long FIRST_RELEASE = 1790812800;
    static constexpr batch_key NONE{-1, 0};

    long below(long limit) { return long(random() % unsigned(limit)); }
    template <class List>
    auto one_of(const List& list) {
        return *std::next(std::begin(list), below(long(std::size(list))));
    }
    static long pages(const kept& of) { return long(of.report.content.size()) * 4 / 3 / PAGE; }
    long limit() const { return bound > 0 ? std::max(bound / PAGE, 64L) : 0; }
    static std::string text_of(const kept& of) {
        return {of.report.content.begin(), of.report.content.end()};
    }

    static Json::Value json_of(const std::map<std::string, long>& numbers) {
        Json::Value json;
        for (const auto& [name, value] : numbers) {
            json[name] = Json::Int64(value);
        }
        return json;
    }

    // Makes a call and looks at what the store has now. If `kill` is set, a process of its own
    // makes the call and is killed at that write. Then the result is not known.
    template <class Call>
    auto run(Call call) {
        decltype(call()) result{};
        last_write = std::exchange(kill, 0);
        killed = last_write != 0;
        if (killed) {
            in_children(1, [&]() noexcept { return call(), true; });
        } else {
            result = call();
        }
        last_write = 0;
        shown = reporter::parse_config(store()->get_report_as_json(0));
        gone.clear();
        for (const auto& [id, report] : reports) {
            if (!shown.isMember(std::to_string(id))) {
                gone.push_back(id);
            }
        }
        return result;
    }
    long figure(const std::string& name) const { return long(shown[name].asInt64()); }
    bool changed(const std::string& name) { return figure(name) != accounts[name]; }

    void compare(bool bounded) {
        run([] { return 0; });
        std::map<std::string, long> numbers = accounts;
        for (const char* any : {"next_id", "pages", "free"}) {
            numbers[any] = figure(any);
        }
        for (const auto& [id, report] : reports) {
            numbers[std::to_string(id)] = report.count;
        }
        Json::Value all = json_of(numbers);
        all["check"] = "ok";
        EXPECT_EQ(shown, all);
        const long former = std::exchange(size, long(std::filesystem::file_size(file)));
        EXPECT_TRUE(!bounded || bound == 0 || size <= std::max(limit() * PAGE, former))
            << former << " " << size;
    }
    void drop(const ids& all, const std::string& account) {
        for (const unsigned id : all) {
            accounts[account] += reports.at(id).count;
            reports.erase(id);
        }
    }
    void join(kept& old) {
        ++accounts["saved"];
        ++accounts["joined"];
        ++old.count;
        old.last = now;
    }

    long next_time() const {
        const long time = period > 0 ? now - (now % period + period) % period + period : now;
        return long(std::clamp(0LL + time, 0LL, (1LL << 34) - 1));
    }
    kept some_report() {
        std::string bytes(std::size_t(below(below(3) == 0 ? 100000 : 1L << below(13))), ' ');
        std::generate(bytes.begin(), bytes.end(), std::ref(random));
        bytes = below(5) == 0 ? one_of(TEXTS) : bytes;
        const bool goes_on = newest != NONE && period == 0 && newest.first <= now;
        const batch_key batch{goes_on ? newest.first : next_time(), 0};
        const reporter::report report{std::int16_t(below(3) - 1),
                                      std::int16_t(below(2)),
                                      {bytes.begin(), bytes.end()},
                                      std::uint32_t(-below(2) * below(3))};
        return {report, 1, now, now, accounts["listed_days"], batch, false, false};
    }
    void save() {
        const kept fresh = some_report();
        const reporter::report& report = fresh.report;
        const auto like = std::find_if(reports.rbegin(), reports.rend(), [&](const auto& entry) {
            const kept& old = entry.second;
            return report.aggregationid != 0 && report.aggregationid == old.report.aggregationid &&
                   report.module == old.report.module && report.type == old.report.type &&
                   fresh.batch.first == old.batch.first && !old.sealed && !old.moved;
        });
        const long before = figure("pages"), free = figure("free");
        const unsigned id = run([&] { return unsigned(store()->save_report(report)); });
        if (!changed("saved")) {
            const bool refused = changed("refused");
            EXPECT_TRUE(killed || (id == 0 && (refused || disk_left >= 0))) << id;
            EXPECT_TRUE(!refused || pages(fresh) + SLACK > limit() - EMPTY);
            accounts["refused"] += refused ? 1 : 0;
        } else if (like != reports.rend()) {
            EXPECT_TRUE(killed || id == like->first) << id;
            join(like->second);
        } else {
            make_room(before, free, fresh);
            add(fresh, id);
        }
    }
    // Only the oldest went, and not one more than was wanted.
    void make_room(long before, long room, const kept& fresh) {
        auto oldest = reports.begin();
        for (const unsigned id : gone) {
            EXPECT_LT(room, pages(fresh) + SLACK + std::min(before - limit(), STEP));
            EXPECT_TRUE(bound > 0 && id == oldest->first) << id;
            room += pages(oldest++->second);
        }
        drop(gone, "dropped_space");
        EXPECT_TRUE(killed || bound == 0 || figure("pages") <= std::max(limit(), before - STEP));
    }
    void add(kept fresh, unsigned result) {
        const auto id = unsigned(figure("next_id") - 1);
        EXPECT_TRUE(killed || result == id) << result;
        EXPECT_TRUE(used.insert(id).second && (reports.empty() || id > reports.rbegin()->first));
        ++accounts["saved"];
        if (newest.first != fresh.batch.first) {
            newest = {fresh.batch.first, ++batches};
        }
        fresh.batch = newest;
        files[text_of(fresh)] = id;
        reports[id] = fresh;
    }
    void aggregate() {
        const long name = below(4);
        reporter::ext_aggregation_data data{"c" + std::to_string(name), "f"};
        const auto found = reports.find(files[TEXTS[name]]);
        const bool joins =
            name < 2 && found != reports.end() && !found->second.sealed && !found->second.moved;
        const long result = run([&] { return long(store()->ext_aggregation(data)); });
        EXPECT_TRUE(killed || result == (joins ? found->second.count + 1 : 0)) << result;
        if (joins && changed("saved")) {
            join(found->second);
        }
    }

    // After a listing: the first of those that are too old are gone, and the day is counted. One
    // that was killed may have done nothing.
    void age() {
        std::vector<std::pair<batch_key, unsigned>> aged;
        for (const auto& [id, old] : reports) {
            if (max_age > 0 && old.sealed && accounts["listed_days"] - old.day > max_age) {
                aged.emplace_back(old.batch, id);
            }
        }
        std::sort(aged.begin(), aged.end());
        EXPECT_TRUE(killed || gone.empty() == aged.empty());
        ASSERT_LE(gone.size(), aged.size()) << "too early";
        long freed = 0;
        for (std::size_t at = 0; at < gone.size(); ++at) {
            EXPECT_LT(freed, STEP);
            EXPECT_EQ(std::count(gone.begin(), gone.end(), aged[at].second), 1) << "no order";
            freed += pages(reports.at(aged[at].second));
        }
        drop(gone, "dropped_age");
        const long day = now >= 0 ? now / DAY : -1;
        if (day > accounts["latest_day"] && (!killed || changed("latest_day"))) {
            accounts["latest_day"] = day;
            ++accounts["listed_days"];
        }
    }
    // Times that only a wrong clock gives become the next regular one, and their batches end.
    std::vector<long> list_times() {
        std::vector<long> times;
        do {
            times = run([&] { return store()->get_all_dispatch_times(); });
            age();
        } while (killed);
        std::map<batch_key, batch_key> places;
        for (const auto& [id, report] : reports) {
            places[report.batch] = report.batch;
        }
        for (auto& [from, to] : places) {
            if (now >= FIRST_RELEASE && from.first > next_time()) {
                to = {next_time(), ++batches};
            }
        }
        newest = places.count(newest) != 0 && places[newest] == newest ? newest : NONE;
        std::set<long> expected;
        for (auto& [id, report] : reports) {
            report.moved = report.moved || places[report.batch] != report.batch;
            report.batch = places[report.batch];
            expected.insert(report.batch.first);
        }
        EXPECT_EQ(times, std::vector<long>(expected.begin(), expected.end()));
        return times;
    }
    ids seal(long time) {
        ids all;
        for (auto& [id, report] : reports) {
            if (report.batch.first == time) {
                report.sealed = true;
                all.push_back(id);
            }
        }
        newest = newest.first == time ? NONE : newest;
        return all;
    }
    void list_ids() {
        const long time = reports.empty() ? now : one_of(reports).second.batch.first;
        const auto list = [&] { return store()->get_ids_by_dispatch_time(time); };
        run(list);
        EXPECT_EQ(list(), seal(time)) << time;
    }
    void check(unsigned id, const Json::Value& json) {
        const kept& report = reports[id];
        const std::string packed = json["content"].asString(), text = text_of(report);
        const std::string stream = reporter::base64_decode(packed.data(), unsigned(packed.size()));
        EXPECT_EQ(reporter::inflate(stream.data(), unsigned(stream.size())), text);
        Json::Value all = json_of({{"module", report.report.module},
                                   {"type", report.report.type},
                                   {"count", report.count},
                                   {"size", text.size()},
                                   {"first_time", report.first},
                                   {"last_time", report.last}});
        all["aggregationid"] = report.report.aggregationid;
        all["SHA256"] = reporter::sha256(text.data(), unsigned(text.size()));
        all["uid"] = json["uid"];
        if (report.first < FIRST_RELEASE) {
            all["clock"] = "untrusted";
        }
        all["encoding"] = "deflate+base64";
        all["content"] = packed;
        EXPECT_EQ(reporter::json_compact(json), reporter::json_compact(all));
    }
    void remove() {
        const bool any = reports.empty() || below(5) == 0;
        const unsigned id = any ? one_of(used) : one_of(reports).first;
        const ids wanted(reports.count(id), id);
        const long count = wanted.empty() ? 0 : reports[id].count;
        const long result = run([&] { return long(store()->remove_report(id).at(0).second); });
        EXPECT_TRUE(gone == wanted || (killed && gone.empty()));
        EXPECT_TRUE(killed || result == count);
        drop(gone, "removed");
    }
    // A whole pass in one process.
    void send() {
        for (const long time : list_times()) {
            auto cursor = store()->cursor(time);
            for (const unsigned id : seal(time)) {
                ASSERT_TRUE(cursor.has_next() && cursor.get_id() == id) << id;
                check(id, cursor.to_json());
                cursor.remove();
                drop({id}, "removed");
            }
            EXPECT_FALSE(cursor.has_next());
        }
    }

    void change_clock() {
        right += below(2) == 0 ? 1 : below(3 * DAY);
        const long far =
            long(std::min(30'000'000'000LL, std::numeric_limits<long>::max() - 400LL * DAY));
        const long small = below(1L << below(14)), large = below(400 * DAY);
        const long clocks[] = {right, right,         right,         right - small, right + small,
                               small, right - large, right + large, -small,        far};
        now = clocks[below(calm ? 5 : 10)];
    }
    void change_settings() {
        bound = one_of(std::vector{0, 1, 270000, 500000, 4000000, 4000000});
        period = one_of(std::vector{0, 1, 1, 86400, 1000000, 1000000});
        max_age = one_of(std::vector{0, 1, 1, 1, 2});
        config["db_max_size"] = int(bound);
        config["processor"]["max_age_days"] = int(max_age);
        config["processor"]["dispatching_time"] = std::to_string(period);
    }
    void begin_anew() {
        disk_left = -1;
        write_text(file, "damaged");
        reports.clear();
        newest = NONE;
        accounts = {{"saved", 0},      {"joined", 0},        {"refused", 0},
                    {"removed", 0},    {"dropped_space", 0}, {"dropped_age", 0},
                    {"latest_day", 0}, {"listed_days", 0}};
        run([&] { return store()->get_report_as_json(0); });
    }

    void step() {
        const bool may_be_killed = below(4) == 0;
        kill = may_be_killed ? int(1 + below(32)) : 0;
        const long choice = below(100);
        choice < 40     ? save()
        : choice < 46   ? aggregate()
        : choice < 51   ? remove()
        : choice < 58   ? list_ids()
        : choice < 71   ? void(list_times())
        : choice < 72   ? send()
        : choice < 90   ? change_clock()
        : choice < 92   ? change_settings()
        : choice < 98   ? void(disk_left = below(3) == 0 ? below(1L << below(20)) : -1)
        : choice < 99   ? begin_anew()
        : disk_left < 0 ? void(std::filesystem::remove(file + "-journal"))
                        : void();
        kill = 0;
        compare(!may_be_killed);
        recorder.clear();
    }
    void play(unsigned seed) {
        std::cout << "seed " << seed << std::endl;
        SCOPED_TRACE(seed);
        random.seed(seed);
        begin_anew();
        change_settings();
        now = right = NOON;
        calm = below(2) == 0;
        for (int steps = 200; steps > 0 && !HasFailure(); --steps) {
            step();
        }
        disk_left = -1;
        now = right;
        send();
        compare(true);
        EXPECT_TRUE(HasFailure() || reports.empty());
    }

    std::map<unsigned, kept> reports;
    batch_key newest;
    std::map<std::string, unsigned> files;
    std::map<std::string, long> accounts;
    std::set<unsigned> used{1};
    Json::Value shown;
    ids gone;
    unsigned batches = 0;
    long bound = 0, period = 86400, max_age = 0, size = 0, right = NOON;
    int kill = 0;
    bool killed = false, calm = true;
};

TEST_F(store_model, agrees_after_every_call) {
    script += LOOK;
    const char* first = std::getenv("TEV_MODEL_SEED");
    const char* seconds = std::getenv("TEV_MODEL_SECONDS");
    const std::time_t end = std::time(nullptr) + (seconds != nullptr ? std::atol(seconds) : 0);
    const unsigned start = first != nullptr ? unsigned(std::atol(first)) : 1;
    // An emulator takes half a minute for a game.
    const unsigned games = built_program("").size() > 1 ? 2 : 7;
    for (unsigned seed = start; seed < start + games || std::time(nullptr) < end; ++seed) {
        play(seed);
        ASSERT_FALSE(HasFailure());
    }
}
