#include "sqlite_store.h"

namespace collector {
namespace {

/// What the columns hold says docs/server.md; `content` is as it came. Times are seconds since
/// 1970.
constexpr const char* SCHEMA = R"sql(
CREATE TABLE IF NOT EXISTS devices(id INTEGER PRIMARY KEY, duid TEXT NOT NULL UNIQUE, client TEXT NOT NULL,
  facts TEXT NOT NULL, last_contact INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS pairs(uid TEXT NOT NULL, sha256 TEXT NOT NULL, device INTEGER NOT NULL,
  arrived INTEGER NOT NULL, repeats INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (uid, sha256)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS reports(number INTEGER PRIMARY KEY, uid TEXT NOT NULL, sha256 TEXT NOT NULL,
  device INTEGER NOT NULL, arrived INTEGER NOT NULL, module INTEGER, type INTEGER, aggregationid INTEGER,
  count INTEGER, size INTEGER, first_time INTEGER, last_time INTEGER, clock TEXT, content TEXT);
CREATE INDEX IF NOT EXISTS known_hashes ON reports(sha256);
CREATE VIEW IF NOT EXISTS shown_reports AS SELECT uid, sha256, reports.arrived, duid, module, type, aggregationid,
  count, size, first_time, last_time, clock, content, repeats
  FROM reports JOIN pairs USING (uid, sha256) JOIN devices ON devices.id = reports.device ORDER BY number;
)sql";

constexpr const char* NOTE_CONTACT = R"sql(
INSERT INTO devices(duid, client, facts, last_contact) VALUES ($1, $2, $3, strftime('%s'))
  ON CONFLICT (duid) DO UPDATE SET client = excluded.client, facts = excluded.facts,
  last_contact = excluded.last_contact RETURNING CAST(id AS TEXT) AS id)sql";

constexpr const char* ADD_PAIR = R"sql(
INSERT INTO pairs(uid, sha256, device, arrived) VALUES ($1, $2, $3, strftime('%s'))
  ON CONFLICT (uid, sha256) DO UPDATE SET repeats = repeats + 1 RETURNING repeats,
  (SELECT count(*) FROM pairs AS other WHERE other.uid = $1 AND other.sha256 <> $2) AS others)sql";

/// $1: the report as it came.
constexpr const char* ADD_REPORT = R"sql(
INSERT INTO reports(uid, sha256, device, arrived, module, type, aggregationid, count, size, first_time, last_time,
  clock, content) SELECT $1->>'uid', $1->>'SHA256', $2, strftime('%s'), $1->>'module', $1->>'type',
  $1->>'aggregationid', $1->>'count', $1->>'size', $1->>'first_time', $1->>'last_time', $1->>'clock',
  $1->>'content')sql";

}  // namespace

sqlite_store::sqlite_store(const std::string& path) : _database(path) {
    _database.run(SCHEMA);
}

receipt sqlite_store::keep(const sender& from, const Json::Value& reports) {
    const std::lock_guard<std::mutex> lock(_mutex);
    sqlite_transaction transaction(_database);
    const std::string device = note_contact(from);
    receipt done;
    for (const Json::Value& report : reports) {
        const std::string uid = report["uid"].asString();
        const Json::Value pair =
            _database.rows(ADD_PAIR, {uid, report["SHA256"].asString(), device})[0];
        if (pair["repeats"] != 0) {
            ++done.repeated;
            continue;
        }
        _database.rows(ADD_REPORT, {to_text(report), device});
        ++done.kept;
        if (pair["others"] != 0) {
            done.cloned.push_back(uid);
        }
    }
    transaction.commit();
    return done;
}

std::vector<bool> sqlite_store::known(const sender& from, const Json::Value& hashes) {
    const std::lock_guard<std::mutex> lock(_mutex);
    note_contact(from);
    std::vector<bool> states;
    for (const Json::Value& hash : hashes) {
        states.push_back(
            !_database.rows("SELECT 1 FROM reports WHERE sha256 = $1 LIMIT 1", {hash.asString()})
                 .empty());
    }
    return states;
}

Json::Value sqlite_store::rows(const std::string& sql, const std::vector<std::string>& arguments) {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _database.rows(sql, arguments);
}

std::string sqlite_store::note_contact(const sender& from) {
    return _database
        .rows(NOTE_CONTACT,
              {from.facts["DUID"].asString(), from.client, to_text(from.facts)})[0]["id"]
        .asString();
}

}  // namespace collector
