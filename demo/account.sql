-- Finds what became of each report, and everything that does not add up. Reads the files of the demo's
-- directory. The table `pass` is there already, with the start of the pass in seconds since 1970.

CREATE TABLE saved(id INTEGER, module INTEGER, type INTEGER, count INTEGER, size INTEGER, sha256 TEXT);
CREATE TABLE before(id INTEGER, module INTEGER, type INTEGER, count INTEGER, size INTEGER, sha256 TEXT, due INTEGER);
CREATE TABLE after(id INTEGER, module INTEGER, type INTEGER, count INTEGER, size INTEGER, sha256 TEXT, due INTEGER);
CREATE TABLE requests(number INTEGER, path TEXT, bytes INTEGER, entries INTEGER, status INTEGER, codes TEXT, plan TEXT);
CREATE TABLE known(sha256 TEXT);
.mode tabs
.import saved.tsv saved
.import before.tsv before
.import after.tsv after
.import requests.tsv requests
.import known known
.mode list

-- What the collector keeps. The uid ends with the report's id on the device.
ATTACH 'received.db' AS collector;
CREATE TABLE received AS SELECT CAST(substr(uid, instr(uid, '-') + 1) AS INTEGER) AS id, module, type, count, size,
  sha256, repeats FROM collector.shown_reports;
DETACH collector;

CREATE TABLE statistics AS SELECT event.key AS event, counter.key AS module, counter.value AS count
  FROM json_each(CAST(readfile('data/stats') AS TEXT)) AS event, json_each(event.value) AS counter
  WHERE event.type = 'object';

-- The reports that the demo has the collector not simply take, by module and type.
CREATE TABLE planned(module INTEGER, type INTEGER, outcome TEXT, reason TEXT);
INSERT INTO planned VALUES
  (310, 1, 'known', 'known to the collector by its hash, not sent'),
  (412, 400, 'refused', 'sent, refused for good with 400'),
  (412, 503, 'kept', 'sent, put off with 503: goes with the next pass'),
  (310, 4, 'kept', 'sent, the answer was not JSON: goes with the next pass');

CREATE VIEW found AS SELECT before.*, reason,
  CASE WHEN due > start THEN 'not due' ELSE coalesce(outcome, 'sent') END AS expected,
  CASE WHEN id IN (SELECT id FROM after) THEN
      CASE WHEN id IN (SELECT id FROM received) THEN 'sent and stored' WHEN due > start THEN 'not due' ELSE 'kept' END
    WHEN id IN (SELECT id FROM received) THEN 'sent'
    WHEN sha256 IN (SELECT sha256 FROM known) THEN 'known'
    ELSE 'refused' END AS outcome
  FROM before CROSS JOIN pass LEFT JOIN planned USING (module, type);

CREATE VIEW outcomes AS SELECT id, module, type, count, size, sha256, due, expected, outcome,
  CASE WHEN outcome <> expected THEN outcome || ' (not as planned)'
    WHEN outcome IN ('sent', 'not due') THEN outcome ELSE reason END AS fate FROM found;

-- In the statistics, what a server refuses for good counts as sent and removed.
CREATE VIEW faults AS
  SELECT printf('report %d of module %d, type %d: expected %s, found %s', id, module, type, expected, outcome) AS fault
    FROM outcomes WHERE outcome <> expected
  UNION ALL SELECT printf('report %d was saved and is not stored so', id)
    FROM (SELECT * FROM saved EXCEPT SELECT id, module, type, count, size, sha256 FROM before)
  UNION ALL SELECT printf('report %d is stored and was not saved so', id)
    FROM (SELECT id, module, type, count, size, sha256 FROM before EXCEPT SELECT * FROM saved)
  UNION ALL SELECT printf('report %d stays in the store, but changed', id)
    FROM (SELECT * FROM after EXCEPT SELECT * FROM before)
  UNION ALL SELECT printf('report %d reached the collector, but was not saved so', id)
    FROM (SELECT id, module, type, count, size, sha256 FROM received EXCEPT SELECT * FROM saved)
  UNION ALL SELECT printf('report %d reached the collector %d times', id, 1 + repeats) FROM received WHERE repeats > 0
  UNION ALL SELECT printf('statistics count %d as %s instead of %d', counted, event, expected) FROM (
    SELECT event, (SELECT total(count) FROM statistics WHERE statistics.event = events.event) AS counted,
      (SELECT total(count) FROM outcomes WHERE outcome IN ('sent', 'refused', also)) AS expected
    FROM (SELECT 'sent' AS event, '' AS also UNION SELECT 'removed', 'known') AS events) WHERE counted <> expected;
