-- All that concerns the file: opening, its bound, the journal's room, shrinking, setting aside, transactions.

-- How long a call waits for another SQLite client before it fails with "database is locked".
local BUSY_WAIT_MS = 2000

-- Pages of the smallest bound that is of use, and of none; a smaller "db_max_size" counts as the former.
local LEAST_LIMIT, NO_LIMIT = 64, 0x3fffffff

-- Pages that a store without reports holds: the header, the pointer map and the root of each table.
local EMPTY_PAGES = 8

-- Free pages that stay in the file for the next saves.
local SHRINK_KEEP = 8

-- Pages given back to the file system by one transaction, and how many of these may follow a call.
local SHRINK_STEP, SHRINK_ROUNDS = 16, 2

-- What a failure means, by what its message begins with or holds. Only damage and a foreign store make way for a fresh
-- one: being busy, full, read-only or on a failing disk may pass. A store is foreign when a statement misses a table or
-- a column, or finds it twice.
local FULL, DAMAGE = { "database or disk is full" }, { "malformed", "not a database" }
local FOREIGN = { "^not a report store", "^no such table: ", "^no such column: ", " has no column named ",
  "^ambiguous column name: " }

local function means(message, patterns)
  for at = 1, #patterns do
    if string.find(message, patterns[at]) then return true end
  end
  return false
end

local function is_lost(message)
  return means(message, DAMAGE) or means(message, FOREIGN)
end

-- The bound of the file in pages.
local function page_limit()
  local size = unsigned(DB_MAX_SIZE)
  return size == 0 and NO_LIMIT or math.max(math.floor(size / PAGE_SIZE), LEAST_LIMIT)
end

local function page_count()
  return database.number("PRAGMA page_count")
end

local function free_pages()
  return database.number("PRAGMA freelist_count")
end

-- One page more is given back, as the binding begins this statement twice.
local function vacuum(pages)
  database.each(function() end, "PRAGMA incremental_vacuum(%d)", pages)
end

-- Pages that the journal of a removal, a seal or a shrinking step holds at most, in a file of so many pages.
-- A removal writes the header, the accounts and, on four ways down a tree, the root and up to three pages on
-- each of three levels: 42. Giving back 17 pages writes each, its parent and the page before it, beside those two: 53.
-- Of the pages that a content frees, the journal gets one in 1016, which the free list takes as a trunk to list the
-- others in, and one pointer map for 819: less than one in 400 together, and two more.
local JOURNAL_PAGES, FREED_PAGES = 55, 400

-- The least room that is made. It lasts until the file has 15 MiB, so that few stores ever make it anew.
local LEAST_ROOM = 64

local function journal_need(file_pages)
  return JOURNAL_PAGES + math.floor(file_pages / FREED_PAGES)
end

-- Grows the journal file to that need, so that a full disk stops neither removals nor seals. The file stays so, as the
-- mode PERSIST overwrites it in place. It grows by a transaction that journals so many pages: a filler is written and
-- then deleted under secure_delete, which journals and wipes each of its pages. They are given back at once.
local function grow_journal(pages)
  database.number("PRAGMA max_page_count = %d", NO_LIMIT)
  database.execute("BEGIN IMMEDIATE")
  account("journal_pages = 0")
  database.execute("DELETE FROM filler WHERE id = 1")
  database.execute("INSERT INTO filler(id, body) VALUES(1, zeroblob(%d))", pages * PAGE_SIZE)
  database.execute("COMMIT")
  database.row("PRAGMA journal_mode = PERSIST")
  database.number("PRAGMA secure_delete = ON")
  database.execute("BEGIN IMMEDIATE")
  database.execute("DELETE FROM filler WHERE id = 1")
  account("journal_pages = %d", pages)
  database.execute("COMMIT")
  vacuum(pages)
end

-- A filler that found no room in the journal goes, or its pages would stay until the disk is freed: some at a time,
-- since the journal has each page that a transaction gives back.
local function drop_filler(pages)
  database.execute("DELETE FROM filler WHERE id = 1")
  for _ = 1, pages, 3 do vacuum(2) end
end

-- Sees to the journal's room, and to the bound of the file. Room that is missing is made for a file of twice the size,
-- so that it is seldom made. Returns SQLite's message when the disk has no room.
local function keep_bounds(room)
  local pages, grown, message = page_count(), true, nil
  local need = room >= journal_need(pages) and room or math.max(journal_need(2 * pages), LEAST_ROOM)
  database.number("PRAGMA journal_size_limit = %d", (need + 8) * (PAGE_SIZE + 8))
  if room < need then grown, message = pcall(grow_journal, need) end
  if not grown then pcall(database.execute, "ROLLBACK") end
  database.number("PRAGMA secure_delete = OFF")
  if not grown then pcall(drop_filler, need) end
  database.number("PRAGMA max_page_count = %d", page_limit())
  return message
end

-- It has a rollback journal, since the connection is closed after nearly every call. A write-ahead log would be
-- written back and deleted each time, which costs more syncs than it saves and keeps no room. With FULL a commit is
-- durable: the journal's header is overwritten and synced.
-- The first statement that reads the file rolls back what a killed process left. The journal mode cannot be set before
-- that, and the default one would delete the journal file; under EXCLUSIVE locking it stays. Until `open` ends that,
-- all that is read is read under one lock, instead of taking it and looking for the journal for each statement.
local function connect()
  database = sqlite3.open(PATH_TO_DB, BUSY_WAIT_MS)
  database.row("PRAGMA locking_mode = EXCLUSIVE")
  database.row("PRAGMA journal_mode = PERSIST")
  database.row("PRAGMA synchronous = FULL")
  database.row("PRAGMA temp_store = MEMORY")
  database.row("PRAGMA cache_size = -256")
end

-- Refuses what is not this script's store, and brings what is to the newest version. A file without tables is
-- fresh, also one that was begun when the process was killed.
local function recognise()
  local ours = database.number("PRAGMA application_id") == APPLICATION_ID
  local version = database.number("PRAGMA user_version")
  if not ours and database.number("SELECT count(*) FROM sqlite_master") == 0 then
    migrate(0)
  elseif not ours or version < 1 then
    fail("not a report store")
  elseif version > #VERSIONS then
    fail("of version " .. version .. ", newer than this script's " .. #VERSIONS)
  elseif version < #VERSIONS then
    migrate(version)
  end
end

-- Opens the database if it is not open. Each call looks for the journal, as another SQLite client that writes deletes
-- it. A store without the journal's room still lists and reads, and removes as far as the disk allows. Until the
-- journal has its room again, each commit deletes it. So a journal that is there has the room that the accounts say.
local function open()
  local journal = exists(PATH_TO_DB .. "-journal")
  if database and journal then return end
  if not database then
    connect()
    recognise()
  end
  local kept = database.number("SELECT journal_pages + 0 * (saved + joined + removed + dropped_space + dropped_age "
    .. "+ refused + set_aside + next_id + newest_batch + latest_day + listed_days + length(store)) FROM accounts "
    .. "WHERE one = 1")
  if not kept then begin_accounts() end
  database.row("PRAGMA locking_mode = NORMAL")
  if not journal then database.row("PRAGMA journal_mode = DELETE") end
  local message = keep_bounds(journal and kept or 0)
  if message and is_lost(message) then fail(message) end
end

local function close()
  if database then database.close() end
  database = nil
end

-- Pages to give back: what is free beyond the bound, or all but some once a quarter of the file is free.
local function surplus()
  local free, pages, limit = free_pages(), page_count(), page_limit()
  if pages > limit then return math.min(free, pages - limit) end
  return free * 4 >= pages and free - SHRINK_KEEP or 0
end

local function give_back()
  for _ = 1, SHRINK_ROUNDS do
    local pages = math.min(surplus(), SHRINK_STEP)
    if pages < 1 then return end
    database.execute("BEGIN IMMEDIATE")
    vacuum(pages)
    database.execute("COMMIT")
  end
end

-- Shrinking fails no call.
local function shrink()
  if not pcall(give_back) then pcall(database.execute, "ROLLBACK") end
end

-- Runs body in a transaction. Shrinking comes after it, so that its failure undoes nothing.
local function transaction(body)
  database.execute("BEGIN IMMEDIATE")
  local result, pages = body(), surplus()
  database.execute("COMMIT")
  if pages > 0 then shrink() end
  return result
end

-- A name for a database that has to make way, or nil for a damaged one when one is kept already.
local function name_aside(damaged)
  local name, number = REPORTER_DATA_DIR .. "db_reports.broken", 0
  if damaged then return not exists(name) and name or nil end
  repeat
    number = number + 1
    name = REPORTER_DATA_DIR .. "db_reports.foreign." .. number
  until not exists(name)
  return name
end

-- Makes way for a fresh database. A database that SQLite can read is always kept; of damaged ones only the first, for
-- examination. The journal goes first, as a fresh database could take an old journal for its own.
local function set_aside(message)
  local known, times = pcall(function() return database.number("SELECT set_aside FROM accounts WHERE one = 1") end)
  times_set_aside = (known and times or times_set_aside) + 1
  close()
  local kept = name_aside(means(message, DAMAGE))
  ERROR("report store is set aside, " .. (kept and "kept as " .. kept or "not kept") .. ": " .. message)
  local suffixes = { "-journal", "-wal", "-shm", "" }
  for at = 1, #suffixes do
    local path = PATH_TO_DB .. suffixes[at]
    if not kept then
      os.remove(path)
    elseif exists(path) then
      local moved, reason = os.rename(path, kept .. suffixes[at])
      if not moved then fail(reason) end
    end
  end
end

local function attempt(operation, ...)
  open()
  return operation(...)
end

-- Runs one call. When the database turns out damaged or foreign, runs it once more on a fresh one. A connection of an
-- earlier call tells nothing of that: a newer script may have converted the database since, which opening it shows.
-- After a failure the connection is closed, so that nothing half done stays.
local function serve(operation, ...)
  local earlier = database
  local done, result = pcall(attempt, operation, ...)
  if not done and earlier and is_lost(result) then
    close()
    done, result = pcall(attempt, operation, ...)
  end
  if not done and is_lost(result) then
    done, result = pcall(set_aside, result)
    if done then done, result = pcall(attempt, operation, ...) end
  end
  if not done then
    close()
    fail("report store: " .. result)
  end
  return result
end
