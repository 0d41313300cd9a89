#include "postgres_store.h"

#include <utility>

namespace collector {
namespace {

/// $1: DUID, $2: subject of the certificate, $3: facts. To be followed by the statement that it
/// begins.
const std::string NOTE_CONTACT = R"sql(
WITH device AS (
  INSERT INTO devices(duid, client, facts) VALUES ($1, $2, $3::jsonb)
    ON CONFLICT (duid) DO UPDATE SET client = excluded.client, facts = excluded.facts,
    last_contact = excluded.last_contact RETURNING id)
)sql";

/// $4: the reports as they came. They are taken in the order of their pairs, so that two requests
/// with the same ones cannot wait for each other in turn.
const std::string KEEP = NOTE_CONTACT + R"sql(
, given AS (SELECT DISTINCT ON (uid, hash) decode("SHA256", 'hex') AS hash, *
    FROM jsonb_to_recordset($4::jsonb) AS entry(uid text, "SHA256" text, module int2, type int2, aggregationid int8,
      count int8, size int8, first_time int8, last_time int8, clock text, content text)
    ORDER BY uid, hash)
, pair AS (INSERT INTO pairs AS old (uid, sha256, device) SELECT uid, hash, device.id FROM given, device
    ON CONFLICT (uid, sha256) DO UPDATE SET repeats = old.repeats + 1 RETURNING uid, sha256, repeats)
, kept AS (INSERT INTO reports(uid, sha256, device, module, type, aggregationid, count, size, first_time, last_time,
    clock, content)
    SELECT uid, hash, device.id, module, type, aggregationid, count, size, first_time, last_time, clock,
      decode(content, 'base64')
    FROM given JOIN pair USING (uid), device WHERE hash = pair.sha256 AND repeats = 0)
SELECT uid, repeats = 0 AS new,
  count(*) OVER (PARTITION BY uid) > 1
    OR EXISTS (SELECT FROM pairs AS other WHERE other.uid = pair.uid AND other.sha256 <> pair.sha256) AS cloned FROM pair
)sql";

/// $4: the hashes.
const std::string KNOWN = NOTE_CONTACT + R"sql(
SELECT EXISTS (SELECT FROM reports WHERE sha256 = decode(hash, 'hex')) AS known
  FROM device, jsonb_array_elements_text($4::jsonb) WITH ORDINALITY AS entry(hash, place) ORDER BY place
)sql";

std::vector<std::string> arguments_of(const sender& from, const Json::Value& entries) {
    return {from.facts["DUID"].asString(), from.client, to_text(from.facts), to_text(entries)};
}

}  // namespace

postgres_store::postgres_store(std::string url) : _url(std::move(url)) {}

receipt postgres_store::keep(const sender& from, const Json::Value& reports) {
    receipt done;
    for (const Json::Value& pair : rows(KEEP, arguments_of(from, reports))) {
        const bool is_new = pair["new"].asBool();
        ++(is_new ? done.kept : done.repeated);
        if (is_new && pair["cloned"].asBool()) {
            done.cloned.push_back(pair["uid"].asString());
        }
    }
    return done;
}

std::vector<bool> postgres_store::known(const sender& from, const Json::Value& hashes) {
    std::vector<bool> states;
    for (const Json::Value& row : rows(KNOWN, arguments_of(from, hashes))) {
        states.push_back(row["known"].asBool());
    }
    return states;
}

Json::Value postgres_store::rows(const std::string& sql,
                                 const std::vector<std::string>& arguments) {
    for (;;) {
        connection used = take_idle();
        const bool idled = used != nullptr;
        if (!idled) {
            used = std::make_unique<postgres_connection>(_url);
        }
        try {
            Json::Value answer = used->rows(sql, arguments);
            const std::lock_guard<std::mutex> lock(_mutex);
            _idle.push_back(std::move(used));
            return answer;
        } catch (const std::exception&) {
            // One that was cut off while it idled, as by a restart of the server, has done nothing.
            if (!idled || !used->is_lost()) {
                throw;
            }
        }
    }
}

postgres_store::connection postgres_store::take_idle() {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (_idle.empty()) {
        return nullptr;
    }
    connection idle = std::move(_idle.back());
    _idle.pop_back();
    return idle;
}

}  // namespace collector
