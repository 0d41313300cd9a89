-- The stored reports, one a line: id, module, type, occurrences, size and SHA-256 of the content, and when
-- they are due, in seconds since 1970 (part of the key of their batch, see the storage script).
SELECT id, module, type, count, size, lower(hex(sha256)), (batch >> 18) - (1 << 34)
FROM reports JOIN contents USING (id) JOIN batches ON id BETWEEN first_id AND last_id ORDER BY id;
