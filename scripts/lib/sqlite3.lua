-- SQLite for the storage script, on the compiled luasql binding of the system. Loaded once per
-- interpreter for its side effect, the global `sqlite3`; a device that ships another binding only has
-- to offer the same function with a connection of the same three methods.

local environment = require("luasql.sqlite3").sqlite3()

sqlite3 = {
  -- Opens (and creates) a database file and waits up to busy_wait_ms for the locks of other SQLite
  -- clients. Returns a connection, or nil and SQLite's message. The connection has
  --   execute(sql): a number for a statement without rows, a cursor for a query, or nil and a message;
  --   getlastautoid(), close().
  -- A cursor has fetch(row, "n"), which fills and returns the row, or returns nil at the end and nil
  -- and a message on failure, and close(). A statement that returns rows is begun twice by the
  -- binding: never give it one that changes the database, such as INSERT ... RETURNING.
  open = function(path, busy_wait_ms)
    return environment:connect(path, busy_wait_ms)
  end,
}

return sqlite3
