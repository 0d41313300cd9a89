-- Prints what account.sql has found out.

SELECT '== Reports in the store, before and after the pass';
SELECT printf('  %6s %5s %8s %12s %8s %6s   %s', 'module', 'type', 'before', 'occurrences', 'bytes', 'after',
  'what became of them');
SELECT printf('  %6d %5d %8d %12d %8d %6d   %s', module, type, count(*), total(count), total(size),
  sum(id IN (SELECT id FROM after)), fate) FROM outcomes GROUP BY module, type, fate ORDER BY min(id);
SELECT printf('  %-12s %8d %12d %8d %6d', 'all', count(*), total(count), total(size), (SELECT count(*) FROM after))
  FROM before;

SELECT '== Requests that the collector has seen';
SELECT printf('  %2s  %-14s %8s %8s %7s   %s', '', 'path', 'bytes', 'entries', 'status',
  'code*times (of a hash, 1: known)');
SELECT printf('  %2d  %-14s %8d %8d %7d   %s', number, path, bytes, entries, status,
  CASE WHEN plan LIKE '%body=%' THEN 'none: HTML instead of JSON' ELSE codes END) FROM requests ORDER BY number;

SELECT '== Dropped by hash';
SELECT printf('  %d  %d bytes  %s', id, size, sha256) FROM outcomes WHERE outcome = 'known';

SELECT '== What stays, and why';
SELECT printf('  %d  module %3d, type %3d: %s', id, module, type, CASE outcome WHEN 'not due'
  THEN 'due ' || datetime(due, 'unixepoch', 'localtime') ELSE fate END)
  FROM outcomes WHERE id IN (SELECT id FROM after);

SELECT '== Journal';
SELECT '  ' || coalesce(nullif(replace(rtrim(CAST(readfile('data/journal') AS TEXT), char(10)), char(10), char(10) || '  '), ''),
  'empty');

SELECT '== Statistics: occurrences by module';
SELECT printf('  %-8s %3d   %s', event, total(count),
  group_concat(CASE module WHEN '-' THEN 'module 0' ELSE module END || ': ' || count, '   '))
  FROM statistics GROUP BY event ORDER BY event DESC;
