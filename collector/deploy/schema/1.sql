-- The tables of a fleet's reports. Times are seconds since 1970; docs/server.md says what the other columns hold.

CREATE FUNCTION seconds_now() RETURNS bigint LANGUAGE sql STABLE AS 'SELECT extract(epoch FROM now())::bigint';

-- A row changes with each contact, in place as far as there is room.
CREATE TABLE devices(
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  duid text NOT NULL UNIQUE,
  client text NOT NULL,               -- subject of its certificate
  facts jsonb NOT NULL,               -- the header of its latest request
  last_contact bigint NOT NULL DEFAULT seconds_now()
) WITH (fillfactor = 70);

-- Every report that was ever taken. It outlives the report's row, as a device may send a report again long after.
CREATE TABLE pairs(
  uid text NOT NULL,
  sha256 bytea NOT NULL,
  device bigint NOT NULL,
  arrived bigint NOT NULL DEFAULT seconds_now(),
  repeats integer NOT NULL DEFAULT 0, -- how often it came again
  PRIMARY KEY (uid, sha256)
);
CREATE INDEX pairs_of_device ON pairs(device);
CREATE INDEX pairs_by_age ON pairs USING brin (arrived);

-- One partition for each day of arrival, so that an old day is dropped and not deleted row by row.
CREATE TABLE reports(
  uid text NOT NULL,
  sha256 bytea NOT NULL,
  device bigint NOT NULL,
  arrived bigint NOT NULL DEFAULT seconds_now(),
  module smallint NOT NULL,
  type smallint NOT NULL,
  aggregationid bigint NOT NULL,
  count bigint NOT NULL,
  size bigint NOT NULL,
  first_time bigint NOT NULL,
  last_time bigint NOT NULL,
  clock text,
  content bytea NOT NULL              -- deflated
) PARTITION BY RANGE (arrived);
ALTER TABLE reports ALTER content SET STORAGE EXTERNAL;
CREATE INDEX known_hashes ON reports(sha256);
CREATE INDEX reports_of_device ON reports(device);
CREATE INDEX latest_reports ON reports(arrived);

-- Takes what arrives while the day's own partition is missing, so that nothing has to wait for it.
CREATE TABLE reports_of_no_day PARTITION OF reports DEFAULT;

-- What one may ask for, as in the embedded store.
CREATE VIEW shown_reports AS
  SELECT r.uid, encode(r.sha256, 'hex') AS sha256, r.arrived, duid, module, type, aggregationid, count, size,
    first_time, last_time, clock, translate(encode(content, 'base64'), E'\n', '') AS content, repeats
  FROM reports AS r JOIN pairs USING (uid, sha256) JOIN devices ON devices.id = r.device;
