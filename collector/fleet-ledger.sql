-- Notes what a device's store, attached as `device`, holds. What is there with the same uid was counted up.
CREATE TABLE IF NOT EXISTS ledger(uid TEXT PRIMARY KEY, count INTEGER, size INTEGER, sha256 TEXT);
INSERT OR REPLACE INTO ledger SELECT store || '-' || id, count, size, lower(hex(sha256))
  FROM device.reports JOIN device.contents USING (id), device.accounts;
