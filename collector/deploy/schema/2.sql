-- What is run from time to time. Days are those of UTC, counted from 1970.

-- Makes the partitions of today and some days ahead. A day of which rows are in reports_of_no_day gets none.
CREATE PROCEDURE make_days(ahead integer) LANGUAGE plpgsql AS $$
DECLARE
  day bigint;
BEGIN
  FOR day IN SELECT generate_series(seconds_now() / 86400, seconds_now() / 86400 + ahead) LOOP
    CONTINUE WHEN to_regclass(partition_of(day)) IS NOT NULL
      OR EXISTS (SELECT FROM reports_of_no_day WHERE arrived >= day * 86400 AND arrived < (day + 1) * 86400);
    EXECUTE format('CREATE TABLE %I PARTITION OF reports FOR VALUES FROM (%s) TO (%s)',
      partition_of(day), day * 86400, (day + 1) * 86400);
  END LOOP;
END $$;

CREATE FUNCTION partition_of(day bigint) RETURNS text LANGUAGE sql IMMUTABLE AS
  $$ SELECT 'reports_' || to_char(date '1970-01-01' + day::integer, 'YYYYMMDD') $$;

-- Drops the reports of days before the last report_days, forgets pairs and devices of more than pair_days ago, and
-- makes the days ahead. A report that a device sends after its pair was forgotten is taken for a new one.
-- Each step is a transaction of its own, so it has to be called outside of one: workers wait for the locks of a step.
-- One that cannot have its locks, as during a backup, fails before they wait long, and what is left is done next time.
CREATE PROCEDURE retain(report_days integer, pair_days integer) LANGUAGE plpgsql AS $$
DECLARE
  first_day bigint := seconds_now() / 86400 - report_days;
  old text;
BEGIN
  -- Reports go by whole days, pairs by the second.
  IF report_days < 1 OR pair_days <= report_days THEN
    RAISE EXCEPTION 'reports stay for a day at least, and pairs longer than reports';
  END IF;
  SET lock_timeout = '5s';
  CALL make_days(14);
  COMMIT;
  FOR old IN SELECT relname FROM pg_inherits JOIN pg_class ON pg_class.oid = inhrelid
      WHERE inhparent = 'reports'::regclass AND relname ~ '^reports_\d{8}$' AND relname < partition_of(first_day) LOOP
    EXECUTE format('DROP TABLE %I', old);
    COMMIT;
  END LOOP;
  DELETE FROM reports_of_no_day WHERE arrived < first_day * 86400;
  DELETE FROM pairs WHERE arrived < seconds_now() - pair_days * 86400::bigint;
  COMMIT;
  DELETE FROM devices WHERE last_contact < seconds_now() - pair_days * 86400::bigint;
END $$;

-- Deletes a device and all that came from it. Its next request makes it anew, so its agent has to be switched off
-- before. A report that was under way in between comes again.
CREATE PROCEDURE forget_device(forgotten text) LANGUAGE plpgsql AS $$
BEGIN
  DELETE FROM reports USING devices WHERE devices.id = reports.device AND duid = forgotten;
  DELETE FROM pairs USING devices WHERE devices.id = pairs.device AND duid = forgotten;
  DELETE FROM devices WHERE duid = forgotten;
  IF NOT FOUND THEN
    RAISE EXCEPTION 'there is no device %', forgotten;
  END IF;
END $$;
