-- SQLite for the storage script, on the compiled luasql binding of the system. Loaded for its side effect,
-- the global `sqlite3`. A device with another binding needs another file with the same functions.

local environment = require("luasql.sqlite3").sqlite3()

-- Raises SQLite's own message, without the binding's prefix.
local function check(result, message)
  if result then return result end
  error((string.gsub(message, "^LuaSQL: ", "")), 0)
end

sqlite3 = {}

-- Opens (and creates) a database file. A statement waits up to busy_wait_ms for other clients' locks.
-- Every function of the returned table raises SQLite's message when it fails. The arguments after a
-- statement are put into it by string.format and must be safe there: the binding binds no values.
-- Integers beyond Lua's integer type are narrowed: let SQL turn those into floats or text.
function sqlite3.open(path, busy_wait_ms)
  local connection = check(environment:connect(path))
  local database = {}

  -- Runs a statement. The binding begins one that returns rows twice, so it must not change the
  -- database as well (INSERT ... RETURNING would insert two rows).
  function database.execute(sql, ...)
    return check(connection:execute(string.format(sql, ...)))
  end

  -- Calls visit(row) for each row of a query, a table by column name; visit must not fail.
  function database.each(visit, sql, ...)
    local cursor = database.execute(sql, ...)
    if type(cursor) == "number" then return end
    local row, message = cursor:fetch({}, "a")
    while row do
      visit(row)
      row, message = cursor:fetch({}, "a")
    end
    cursor:close()
    check(not message, message)
  end

  -- Calls visit(value) with the first column of each row, which must not be NULL.
  function database.values(visit, sql, ...)
    local cursor = database.execute(sql, ...)
    if type(cursor) == "number" then return end
    local value, message = cursor:fetch()
    while value do
      visit(value)
      value, message = cursor:fetch()
    end
    cursor:close()
    check(not message, message)
  end

  -- The first row of a query, or nil.
  function database.row(sql, ...)
    local first
    database.each(function(row) first = first or row end, sql, ...)
    return first
  end

  -- The first value of a query as a number, or nil.
  function database.number(sql, ...)
    local first
    database.values(function(value) first = first or tonumber(value) end, sql, ...)
    return first
  end

  -- Rolls back what is open and lets go of the file. Never fails.
  function database.close()
    pcall(connection.execute, connection, "ROLLBACK")
    pcall(connection.close, connection)
  end

  database.row("PRAGMA busy_timeout = %d", busy_wait_ms)
  return database
end

return sqlite3
