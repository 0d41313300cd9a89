-- The stored reports, one a line: id, module, type, occurrences, size and SHA-256 of the content, and the
-- time at which they are due, in seconds since 1970. The batch's key holds that time (lua/store/schema.lua).
SELECT id, module, type, count, size, lower(hex(sha256)), (batch >> 18) - (1 << 34)
FROM reports JOIN contents USING (id) JOIN batches ON id BETWEEN first_id AND last_id ORDER BY id;
