-- Finds what is not where it has to be. `ledger` has what the devices saved, `stores` their accounts, `stored` what
-- they still have, `server` the rows of the database.
CREATE INDEX IF NOT EXISTS server_uid ON server(uid);
CREATE INDEX IF NOT EXISTS server_hash ON server(sha256);

-- Removed as the server had the content of another one.
CREATE TABLE known AS SELECT * FROM ledger
  WHERE uid NOT IN (SELECT uid FROM server) AND uid NOT IN (SELECT uid FROM stored)
    AND size >= 2048 AND sha256 IN (SELECT sha256 FROM server);

CREATE VIEW faults AS
  SELECT printf('%s is %d times in the database', uid, count(*)) AS fault FROM server GROUP BY uid HAVING count(*) > 1
  UNION ALL SELECT printf('%s of %s is in the database, but not as it was saved', uid, duid)
    FROM (SELECT uid, sha256, count, duid FROM server EXCEPT SELECT uid, sha256, count, device FROM ledger)
  UNION ALL SELECT printf('%s of %s is lost', uid, device) FROM ledger
    WHERE uid NOT IN (SELECT uid FROM server UNION SELECT uid FROM stored UNION SELECT uid FROM known)
  UNION ALL SELECT printf('%s is still on its device', uid) FROM stored
  UNION ALL SELECT printf('%s: saved %d, noted %d, removed %d, dropped %d, set aside %d', device, saved,
      (SELECT total(count) FROM ledger WHERE ledger.device = stores.device), removed, dropped, set_aside) FROM stores
    WHERE saved <> (SELECT total(count) FROM ledger WHERE ledger.device = stores.device) OR removed <> saved
      OR dropped <> 0 OR set_aside <> 0
  UNION ALL SELECT 'nothing was saved' WHERE NOT EXISTS (SELECT 1 FROM ledger)
  UNION ALL SELECT 'nothing came again, so nothing was shown' WHERE (SELECT total(repeats) FROM server) = 0;

CREATE VIEW summary AS
  SELECT printf('reports saved: %d, in the database: %d, known there by their content: %d, came again: %d',
      (SELECT count(*) FROM ledger), (SELECT count(*) FROM server), (SELECT count(*) FROM known),
      (SELECT total(repeats) FROM server)) AS line
  UNION ALL SELECT printf('occurrences saved: %d = in the database: %d + known: %d', (SELECT total(saved) FROM stores),
      (SELECT total(count) FROM server), (SELECT total(count) FROM known));
