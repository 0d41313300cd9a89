-- The report store: one SQLite database behind the six functions at the end, which the agent calls
-- (docs/storage_script.md). The interpreter is rebuilt several times per pass, so loading this text
-- does nothing yet: the first call opens the database, which stays open while the interpreter lives.
-- Every call comes under an inter-process lock of the agent; SQLite's own locks matter only against other
-- programs, such as a technician's shell. `get_db_size` is not used: closing any descriptor of the file
-- drops the POSIX locks that SQLite holds on it in this process.
--
-- Ids only grow. Reports stored one after the other for the same dispatch time form a batch: a range of
-- ids, their time and a seal. Listing a time seals its batches by one flag in each, and a later report
-- begins a new batch of that time. So neither sealing nor moving a time that a wrong clock has set touches
-- the reports themselves.

local SCHEMA_VERSION = 1

-- A save touches some six pages and writes most of them twice, once to the journal. Of 512, 1024, 2048 and
-- 4096 bytes this size writes the least by far (docs/operations.md has the figures).
local PAGE_SIZE = 512

-- How long a call waits for another SQLite client before it fails with "database is locked".
local BUSY_WAIT_MS = 2000

-- All ids take five bytes as keys (2^28 to 2^32 - 1), and every table is a plain rowid table without an
-- index. With keys of one length a deletion only ever shrinks a tree, so it needs no new page and no free
-- byte on the disk. A fresh store begins at a random id: ids which a sender still holds from a store that
-- was set aside then name nothing in the new one. 800 million saves later an id passes 2^31, which all but
-- the result of `save_report` on a device with a `long` of 32 bits can hold.
local LOWEST_ID, ID_SPREAD, NO_LAST_ID = 268435456, 1073741824, 1099511627776

-- A key of `batches` is the dispatch time and a number within it; the base gives all keys one length.
local BATCH_BASE, BATCH_BITS = "0x4000000000000000", 24

-- Free pages that stay in the file for the next saves.
local SHRINK_KEEP = 64

-- Transactions that go on shrinking after that of the call itself.
local SHRINK_ROUNDS = 8

-- Reports that go for age in one transaction.
local DROP_STEP = 128

-- Bytes of the largest content that is looked into for caller and file hash.
local PARSED_SIZE = 1048576

local HOUR, DAY = 3600, 86400

-- 2026-10-01, seconds since 1970, to be raised with each release: a clock that shows less was never set.
local RELEASE_TIME = 1790812800

-- After this much steady running at an earlier time, the newest time seen is taken for the error.
local CLOCK_PROOF = 7 * DAY

-- A leap past the newest time seen that may as well be a wrong clock: the pass that meets it drops nothing
-- for age, so that a report is offered once more before it goes.
local CLOCK_LEAP = 180 * DAY

local SCHEMA = {
  -- What happened to occurrences (saved = stored + removed + dropped_space + dropped_age, always), and the
  -- state of the store: one row, as each save changes both.
  [[CREATE TABLE IF NOT EXISTS accounts(one INTEGER PRIMARY KEY CHECK(one = 1),
      saved INTEGER NOT NULL DEFAULT 0, joined INTEGER NOT NULL DEFAULT 0,
      removed INTEGER NOT NULL DEFAULT 0, dropped_space INTEGER NOT NULL DEFAULT 0,
      dropped_age INTEGER NOT NULL DEFAULT 0, refused INTEGER NOT NULL DEFAULT 0,
      set_aside INTEGER NOT NULL, next_id INTEGER NOT NULL, newest_batch INTEGER NOT NULL DEFAULT 0,
      newest_time INTEGER NOT NULL DEFAULT 0, earlier_since INTEGER NOT NULL DEFAULT 0,
      journal_pages INTEGER NOT NULL DEFAULT 0, store TEXT NOT NULL)]],
  [[CREATE TABLE IF NOT EXISTS batches(batch INTEGER PRIMARY KEY, first_id INTEGER NOT NULL, last_id INTEGER NOT NULL,
      sealed INTEGER NOT NULL DEFAULT 0, kept_since INTEGER NOT NULL DEFAULT 0)]],
  [[CREATE TABLE IF NOT EXISTS reports(id INTEGER PRIMARY KEY, module INTEGER NOT NULL, type INTEGER NOT NULL,
      aggregationid INTEGER NOT NULL, count INTEGER NOT NULL, first_time INTEGER NOT NULL,
      last_time INTEGER NOT NULL, untrusted INTEGER NOT NULL, like_key INTEGER, file_key INTEGER)]],
  -- Apart from `reports`, so that counting and listing read and write small rows.
  [[CREATE TABLE IF NOT EXISTS contents(id INTEGER PRIMARY KEY, size INTEGER NOT NULL, sha256 BLOB NOT NULL,
      body TEXT NOT NULL)]],
  -- The newest report under a hash of what makes reports alike, or of caller and file hash.
  [[CREATE TABLE IF NOT EXISTS alike(key INTEGER PRIMARY KEY, id INTEGER NOT NULL, batch INTEGER NOT NULL)]],
}

local database
local times_set_aside = 0

-- A power of two that the file's pages do not pass; the journal has room for the transactions of such a file.
local page_bound = 512

-- The device's Lua integers have 32 bits with a sign: numbers are doubles here, what the agent narrowed is
-- widened again, and what may be larger is read from SQLite as text.
local function unsigned(number)
  return number < 0 and number + 4294967296 or number
end

local function whole(number)
  return string.format("%.0f", number)
end

local function is_full(message)
  return string.find(message, "database or disk is full", 1, true) ~= nil
end

-- Only these mean that the file will never serve again. Busy, full, read-only and failing disks pass.
local function is_damage(message)
  return string.find(message, "malformed", 1, true) ~= nil
    or string.find(message, "not a database", 1, true) ~= nil
    or string.find(message, "unknown schema version", 1, true) ~= nil
end

local function vacuum(pages)
  -- To SQLite, no pages means all.
  if pages < 1 then return end
  database.each(function() end, "PRAGMA incremental_vacuum(%d)", pages)
end

local function account(assignments, ...)
  database.execute("UPDATE accounts SET " .. assignments .. " WHERE one = 1", ...)
end

local function exists(path)
  return (os.rename(path, path)) ~= nil
end

-- DB_MAX_SIZE in pages, 0 for no limit.
local function page_limit()
  local size = unsigned(DB_MAX_SIZE)
  return size > 0 and math.max(math.floor(size / PAGE_SIZE), 1) or 0
end

-- Pages that one transaction gives back to the file system at most.
local function shrink_step()
  return math.max(64, math.min(192, page_bound / 128))
end

-- Pages that the journal of a removal or a seal holds at most. Beside the file's header and the accounts, a
-- removal writes in each of four trees the root and up to three pages on five levels. Of the pages that its
-- content gives back, only those become part of it that the free list takes as trunks (each lists others, four
-- bytes apiece), with the pointer maps (five bytes for a page); the freed pages themselves are not saved, as
-- secure_delete is off. To shrink by a page writes that page, its parent and the page before it. That makes
-- 155 KiB of journal for a file of 1 MiB and 633 KiB for one of 16 MiB.
local function journal_need()
  local lists = math.ceil(page_bound / (PAGE_SIZE / 4 - 8)) + math.ceil(page_bound / math.floor(PAGE_SIZE / 5))
  return lists + 2 + 4 * (1 + 3 * 5) + 3 * shrink_step()
end

-- Grows the journal file to that need; it stays so, as the mode PERSIST overwrites it in place. So a full
-- disk stops neither removals nor seals. To get a transaction that saves so many pages, a filler is written
-- and then deleted under secure_delete, which saves and wipes each of its pages.
local function grow_journal(pages)
  database.number("PRAGMA max_page_count = 1073741823")
  database.execute("BEGIN IMMEDIATE")
  account("journal_pages = 0")
  database.execute("REPLACE INTO contents VALUES(1, 0, x'', zeroblob(%d))", pages * PAGE_SIZE)
  database.execute("COMMIT")
  database.number("PRAGMA secure_delete = ON")
  database.execute("BEGIN IMMEDIATE")
  database.execute("DELETE FROM contents WHERE id = 1")
  account("journal_pages = %d", pages)
  database.execute("COMMIT")
  vacuum(pages)
end

-- Sees to the journal's room for a file of so many pages, and to the limit of the file. Returns SQLite's
-- message when there is no room on the disk for the journal.
local function keep_bounds(file_pages)
  local former = page_bound
  while page_bound < file_pages do page_bound = page_bound * 2 end
  local need, kept = journal_need(), database.number("SELECT journal_pages FROM accounts WHERE one = 1")
  database.number("PRAGMA journal_size_limit = %d", (math.max(need, kept) + 8) * (PAGE_SIZE + 8))
  local grown, message = true, nil
  if kept < need or not exists(PATH_TO_DB .. "-journal") then grown, message = pcall(grow_journal, need) end
  if not grown then
    pcall(database.execute, "ROLLBACK")
    page_bound = former
  end
  database.number("PRAGMA secure_delete = OFF")
  if page_limit() > 0 then database.number("PRAGMA max_page_count = %d", page_limit()) end
  return message
end

-- Pages to give back now: none before a quarter of the file is free.
local function slack()
  local free = database.number("PRAGMA freelist_count")
  if free <= SHRINK_KEEP or free * 4 < database.number("PRAGMA page_count") then return 0 end
  return math.min(free - SHRINK_KEEP, shrink_step())
end

-- Runs body in a transaction, which also shrinks the file. After a large removal a few more transactions go
-- on with that; what they leave is for later calls. They must not fail the call, whose work is done.
local function transaction(body)
  database.execute("BEGIN IMMEDIATE")
  local result = body()
  vacuum(slack())
  database.execute("COMMIT")
  pcall(function()
    for _ = 1, SHRINK_ROUNDS do
      if slack() < shrink_step() then return end
      database.execute("BEGIN IMMEDIATE")
      vacuum(shrink_step())
      database.execute("COMMIT")
    end
  end)
  pcall(database.execute, "ROLLBACK")
  return result
end

local function create_schema()
  database.number("PRAGMA page_size = %d", PAGE_SIZE)
  database.number("PRAGMA auto_vacuum = INCREMENTAL")
  database.execute("BEGIN IMMEDIATE")
  for at = 1, #SCHEMA do database.execute(SCHEMA[at]) end
  database.execute("INSERT OR IGNORE INTO accounts(one, set_aside, next_id, store) "
    .. "VALUES(1, %d, %d + abs(random() %% %d), lower(hex(randomblob(16))))", times_set_aside, LOWEST_ID, ID_SPREAD)
  database.execute("PRAGMA user_version = %d", SCHEMA_VERSION)
  database.execute("COMMIT")
end

-- A rollback journal, since the connection is closed after nearly every call: a write-ahead log is written
-- back and deleted with the last connection, which costs more syncs than it saves and keeps no room. FULL
-- makes a commit durable, which here is the synced overwriting of the journal's header.
-- The first statement that reads the file rolls back what a killed process left. Journal mode cannot be set
-- before it, but under EXCLUSIVE locking it leaves the journal file in place as well.
local function connect()
  database = sqlite3.open(PATH_TO_DB, BUSY_WAIT_MS)
  database.row("PRAGMA locking_mode = EXCLUSIVE")
  database.row("PRAGMA journal_mode = PERSIST")
  database.row("PRAGMA locking_mode = NORMAL")
  database.row("PRAGMA synchronous = FULL")
  database.row("PRAGMA secure_delete = OFF")
  database.row("PRAGMA temp_store = MEMORY")
  database.row("PRAGMA cache_size = -256")
  local version = database.number("PRAGMA user_version")
  if version == 0 then
    create_schema()
  elseif version ~= SCHEMA_VERSION then
    error("unknown schema version " .. version, 0)
  end
end

-- Opens the database when need be. The journal is looked for at each call, as another SQLite client that
-- writes deletes it. A store without its room still lists and reads, and removes as far as the disk allows.
local function open()
  if database and exists(PATH_TO_DB .. "-journal") then return end
  if not database then connect() end
  local message = keep_bounds(database.number("PRAGMA page_count"))
  if message and is_damage(message) then error(message, 0) end
end

local function close()
  if database then database.close() end
  database = nil
end

-- Keeps a damaged database for an examination, unless one is kept already, and makes way for a fresh one.
-- The journal goes first: a fresh database beside an old journal could take it for its own.
local function set_aside(message)
  local known, times = pcall(function() return database.number("SELECT set_aside FROM accounts WHERE one = 1") end)
  times_set_aside = (known and times or times_set_aside) + 1
  close()
  ERROR("report store is damaged and set aside: " .. message)
  local kept = REPORTER_DATA_DIR .. "db_reports.broken"
  local taken = exists(kept)
  for _, suffix in pairs({ "-journal", "-wal", "-shm", "" }) do
    if taken or not os.rename(PATH_TO_DB .. suffix, kept .. suffix) then os.remove(PATH_TO_DB .. suffix) end
  end
end

-- Runs one call, and once more on a fresh database when the present one turns out damaged. After a failure
-- nothing half done stays: the connection is closed.
local function serve(operation, ...)
  local arguments = { ... }
  local function attempt()
    open()
    return operation(unpack(arguments))
  end
  local done, result = pcall(attempt)
  if not done and is_damage(tostring(result)) then
    set_aside(result)
    done, result = pcall(attempt)
  end
  if not done then
    close()
    error("report store: " .. tostring(result), 0)
  end
  return result
end

-- CONFIG has the comments of its file, which are no JSON. Once quotes and backslashes within strings are
-- written as numbers, a string ends at the next quote.
local function strip_comments(text)
  text = string.gsub(text, '\\(["\\])', { ['"'] = "\\u0022", ["\\"] = "\\u005c" })
  local kept, at = {}, 1
  while at <= #text do
    local last = select(2, string.find(text, "^//[^\n]*", at)) or select(2, string.find(text, "^/%*.-%*/", at))
    if not last then
      last = select(2, string.find(text, '^"[^"]*"', at)) or select(2, string.find(text, '^[^"/]+', at)) or at
      kept[#kept + 1] = string.sub(text, at, last)
    end
    at = last + 1
  end
  return table.concat(kept)
end

local settings

-- A number of CONFIG's "processor" object, 0 when it is absent or not positive.
local function setting(name)
  if not settings then
    local read, root = pcall(json.decode, strip_comments(CONFIG))
    settings = read and type(root) == "table" and type(root.processor) == "table" and root.processor or {}
  end
  local value = settings[name]
  return type(value) == "number" and value > 0 and math.floor(value) or 0
end

-- "HH:MM,HH:MM,..." as a list of hours and minutes, or nil.
local function clock_times(text)
  local list = {}
  for entry in string.gmatch(text .. ",", "([^,]*),") do
    local hour, minute = string.match(entry, "^(%d%d):(%d%d)$")
    if not hour or tonumber(hour) > 23 or tonumber(minute) > 59 then return nil end
    list[#list + 1] = { hour = tonumber(hour), min = tonumber(minute) }
  end
  return list
end

local schedule

-- DISPATCHING_TIME as a period in seconds (0: at once) or a list of local times, and the device's offset.
local function read_schedule()
  if schedule then return schedule end
  local spread = setting("dispatching_spread")
  local period = string.find(DISPATCHING_TIME, "^%d+$") and tonumber(DISPATCHING_TIME)
  schedule = { period = period and period < 2147483648 and period,
    times = clock_times(DISPATCHING_TIME),
    offset = spread > 0 and tonumber(string.sub(sha256(DUID or ""), 1, 8), 16) % spread or 0 }
  if not schedule.period and not schedule.times then
    ERROR("bad dispatching time, 03:00 is used instead: " .. DISPATCHING_TIME)
    schedule.times = { { hour = 3, min = 0 } }
  end
  return schedule
end

-- The first of the local times after a moment. os.time carries days over the end of a month and moves a
-- time that daylight saving skips; a third day is looked at in case that brings it before the moment.
local function next_clock_time(times, moment)
  local today, best = os.date("*t", moment), nil
  for days = 0, 2 do
    for at = 1, #times do
      local time = os.time({ year = today.year, month = today.month, day = today.day + days,
        hour = times[at].hour, min = times[at].min, sec = 0 })
      if time and time > moment and (not best or time < best) then best = time end
    end
  end
  return best
end

-- When a report of this moment is due: later by the schedule, or now.
local function next_dispatch_time(now)
  local plan = read_schedule()
  if plan.period == 0 then return now end
  local moment = now - plan.offset
  if plan.period then return moment - moment % plan.period + plan.period + plan.offset end
  return next_clock_time(plan.times, moment) + plan.offset
end

local function batch_key(time)
  return "(" .. BATCH_BASE .. " + (" .. whole(time) .. " << " .. BATCH_BITS .. "))"
end

local function batches_of(time)
  return "batch BETWEEN " .. batch_key(time) .. " AND " .. batch_key(time + 1) .. " - 1"
end

local BATCH_TIME = "CAST((batch - " .. BATCH_BASE .. ") >> " .. BATCH_BITS .. " AS TEXT)"

-- The state of the store with its newest batch, whose fields are nil when that is gone.
local function read_state()
  local row = database.row("SELECT CAST(next_id AS TEXT), CAST(newest_time AS TEXT), "
    .. "CAST(earlier_since AS TEXT), CAST(batch AS TEXT), " .. BATCH_TIME .. ", sealed "
    .. "FROM accounts LEFT JOIN batches ON batch = newest_batch WHERE one = 1")
  return { next_id = tonumber(row[1]), newest_time = tonumber(row[2]), earlier_since = tonumber(row[3]),
    batch = row[4], batch_time = tonumber(row[5]), batch_open = row[6] == 0 }
end

-- Whether the clock can be believed, what to record of it, and whether that is news. A device that keeps no
-- time falls back at each start and so never runs on at the earlier time for as long as CLOCK_PROOF.
local function judge_clock(state, now)
  local trusted = now >= RELEASE_TIME and now >= state.newest_time - DAY
  local newest, earlier = math.max(state.newest_time, trusted and now or 0), 0
  if not trusted and now >= RELEASE_TIME then
    earlier = state.earlier_since > 0 and math.min(state.earlier_since, now) or now
    if now - earlier > CLOCK_PROOF then newest, earlier = now, 0 end
  end
  return trusted, "newest_time = " .. whole(newest) .. ", earlier_since = " .. whole(earlier),
    math.abs(newest - state.newest_time) > HOUR or earlier ~= state.earlier_since
end

-- A report that the clock cannot date is due at time 0: at the next pass, whatever the clock says then. What
-- is due at once shares the time of its open batch, so that it aggregates and the times stay few.
local function dispatch_time(state, now, trusted)
  if not trusted then return 0 end
  local last = state.batch_open and state.batch_time or 0
  if read_schedule().period == 0 and last > 0 and last <= now then return last end
  return next_dispatch_time(now)
end

-- Keys of `alike` are 60 bits of a hash after a digit that tells the two kinds apart.
local function like_key(report, time)
  if report.aggregationid == 0 then return nil end
  local parts = { whole(time), report.module, report.type, whole(report.aggregationid) }
  return "0x5" .. string.sub(sha256(table.concat(parts, " ")), 1, 15)
end

local function file_key(caller, filehash)
  return "0x6" .. string.sub(sha256(sha256(caller) .. sha256(filehash)), 1, 15)
end

-- The file key of a content that is a JSON object with both names. Most contents lack them and are not
-- parsed, nor is one whose parsed form would take too much memory; one nested beyond the parser's depth
-- counts as no JSON.
local function file_key_of(content)
  if #content > PARSED_SIZE or not string.find(content, "^%s*{")
    or not string.find(content, '"caller"', 1, true) or not string.find(content, '"filehash"', 1, true) then
    return nil
  end
  local read, object = pcall(json.decode, content)
  if not read or type(object.caller) ~= "string" or type(object.filehash) ~= "string" then return nil end
  return file_key(object.caller, object.filehash)
end

-- Id and count of the report, not sealed, under a key.
local function find_alike(key, condition)
  local row = database.row("SELECT CAST(reports.id AS TEXT), CAST(reports.count AS TEXT) FROM alike "
    .. "CROSS JOIN batches ON batches.batch = alike.batch AND sealed = 0 "
    .. "CROSS JOIN reports ON reports.id = alike.id AND reports.id BETWEEN first_id AND last_id "
    .. "WHERE key = " .. key .. condition)
  if row then return tonumber(row[1]), tonumber(row[2]) end
end

local function join(id, now, clock)
  database.execute("UPDATE reports SET count = count + 1, last_time = %.0f WHERE id = %.0f", now, id)
  account("saved = saved + 1, joined = joined + 1, " .. clock)
end

-- Deletes a report and adds its occurrences to an account; returns their number, 0 without a report.
local function delete_report(id, name)
  local row = database.row("SELECT CAST(count AS TEXT), CAST(like_key AS TEXT), CAST(file_key AS TEXT) "
    .. "FROM reports WHERE id = " .. id)
  if not row then return 0 end
  for column = 2, 3 do
    if row[column] then database.execute("DELETE FROM alike WHERE key = %s AND id = %s", row[column], id) end
  end
  database.execute("DELETE FROM contents WHERE id = " .. id)
  database.execute("DELETE FROM reports WHERE id = " .. id)
  account("%s = %s + %s", name, name, row[1])
  return tonumber(row[1])
end

-- Pages that a body of so many bytes adds at most: its own, and a split in each tree that gains a row.
local function pages_for(length)
  local own = math.ceil(length / (PAGE_SIZE - 4))
  return own + math.ceil(own / math.floor(PAGE_SIZE / 5)) + 20
end

-- Drops the oldest reports until so many pages fit within the size limit. False when they do not fit an
-- empty store either.
local function make_room(need)
  local limit, reports, occurrences = page_limit(), 0, 0
  while limit - database.number("PRAGMA page_count") + database.number("PRAGMA freelist_count") < need do
    local oldest = need < limit
      and database.row("SELECT CAST(id AS TEXT) FROM reports WHERE id > 0 ORDER BY id LIMIT 1")
    if not oldest then return false end
    reports, occurrences = reports + 1, occurrences + delete_report(oldest[1], "dropped_space")
  end
  vacuum(math.max(database.number("PRAGMA page_count") - limit, 0))
  return true, reports, occurrences
end

-- The newest batch if it takes reports of this time, or else a new one, which ends the range of the former.
local function batch_for(state, time)
  if state.batch_open and state.batch_time == time then return state.batch end
  if state.batch then
    database.execute("UPDATE batches SET last_id = %.0f WHERE batch = %s", state.next_id - 1, state.batch)
  end
  local last = database.row("SELECT CAST(batch + 1 AS TEXT) FROM batches WHERE " .. batches_of(time)
    .. " ORDER BY batch DESC LIMIT 1")
  local batch = last and last[1] or batch_key(time)
  database.execute("INSERT INTO batches(batch, first_id, last_id) VALUES(%s, %.0f, %.0f)", batch, state.next_id,
    NO_LAST_ID)
  account("newest_batch = " .. batch)
  return batch
end

local function insert_report(state, report, new)
  local id, batch = whole(state.next_id), batch_for(state, new.time)
  database.execute("INSERT INTO reports VALUES(%s, %d, %d, %.0f, 1, %.0f, %.0f, %d, %s, %s)", id, report.module,
    report.type, report.aggregationid, new.now, new.now, new.trusted and 0 or 1, new.like_key or "NULL",
    new.file_key or "NULL")
  database.execute("INSERT INTO contents VALUES(%s, %d, x'%s', '%s')", id, #report.content,
    sha256(report.content), new.body)
  for _, key in pairs({ like = new.like_key, file = new.file_key }) do
    database.execute("REPLACE INTO alike VALUES(%s, %s, %s)", key, id, batch)
  end
  account("saved = saved + 1, next_id = %s + 1, %s", id, new.clock)
end

local function store_report(report)
  local file_pages = database.number("PRAGMA page_count") + pages_for(#report.content * 1.4)
  if page_limit() > 0 then file_pages = math.min(file_pages, page_limit()) end
  local message = file_pages > page_bound and keep_bounds(file_pages)
  if message then error(message, 0) end
  local dropped, occurrences
  local id = transaction(function()
    local state, new = read_state(), { now = get_timestamp() }
    new.trusted, new.clock = judge_clock(state, new.now)
    new.time = dispatch_time(state, new.now, new.trusted)
    new.like_key = like_key(report, new.time)
    local like = new.like_key and find_alike(new.like_key, string.format(
      " AND module = %d AND type = %d AND aggregationid = %.0f", report.module, report.type, report.aggregationid))
    if like then
      join(like, new.now, new.clock)
      return like
    end
    new.body = base64_encode(deflate(report.content))
    new.file_key = file_key_of(report.content)
    local fits = true
    if page_limit() > 0 then fits, dropped, occurrences = make_room(pages_for(#new.body)) end
    if not fits then
      database.execute("ROLLBACK")
      database.execute("BEGIN IMMEDIATE")
      account("refused = refused + 1")
      return 0
    end
    insert_report(state, report, new)
    return state.next_id
  end)
  if id == 0 then WARN("report refused, too large for the store: " .. #report.content .. " bytes") end
  if dropped and dropped > 0 then
    WARN("dropped for space: " .. dropped .. " reports, " .. whole(occurrences) .. " occurrences")
  end
  return id
end

-- Drops the reports of a batch that are older than the limit, or all of it where the batch has an age of its
-- own; some in each transaction, for a small journal.
local function drop_aged(aged, limit)
  local reports, occurrences, last = 0, 0, 0
  repeat
    last = reports
    transaction(function()
      while reports < last + DROP_STEP do
        local row = database.row("SELECT CAST(id AS TEXT), CAST(first_time AS TEXT) FROM reports "
          .. "WHERE id BETWEEN %s AND %s ORDER BY id LIMIT 1", aged.first_id, aged.last_id)
        if not row or not (aged.entire or tonumber(row[2]) < limit) then break end
        reports, occurrences = reports + 1, occurrences + delete_report(row[1], "dropped_age")
      end
    end)
  until reports < last + DROP_STEP
  WARN("dropped for age: " .. reports .. " reports, " .. whole(occurrences) .. " occurrences")
end

-- Moves a time that a wrong clock or another schedule has set. Its range ends here.
local MOVE = "UPDATE batches SET batch = (SELECT coalesce(max(batch) + 1, %s) FROM batches WHERE %s), "
  .. "kept_since = %.0f, last_id = min(last_id, (SELECT next_id - 1 FROM accounts WHERE one = 1)) WHERE batch = %s"

-- All batches, each with its oldest report by one seek.
local SURVEY = "SELECT CAST(batch AS TEXT), " .. BATCH_TIME .. ", CAST(kept_since AS TEXT), "
  .. "CAST(first_time AS TEXT), CAST(first_id AS TEXT), CAST(last_id AS TEXT) FROM batches LEFT JOIN reports ON id = "
  .. "(SELECT id FROM reports WHERE id BETWEEN first_id AND last_id ORDER BY id LIMIT 1) "
  .. "WHERE batch >= " .. BATCH_BASE .. " ORDER BY batch"

-- The dispatch times of stored reports, statements that mend batches, and batches beyond the age limit.
local function survey(now, trusted, limit)
  local latest, times, mend, aged = next_dispatch_time(now), {}, {}, {}
  database.each(function(row)
    local batch, time, since, oldest = row[1], tonumber(row[2]), tonumber(row[3]), tonumber(row[4])
    if not oldest then
      mend[#mend + 1] = "DELETE FROM batches WHERE batch = " .. batch
      return
    end
    if time > latest then
      mend[#mend + 1] = string.format(MOVE, batch_key(latest), batches_of(latest), now, batch)
      mend[#mend + 1] = "UPDATE accounts SET newest_batch = 0 WHERE one = 1 AND newest_batch = " .. batch
    elseif time == 0 and since == 0 and trusted then
      mend[#mend + 1] = "UPDATE batches SET kept_since = " .. whole(now) .. " WHERE batch = " .. batch
    end
    -- Undated reports age from the first pass under a clock that is believed.
    local born = since > 0 and since or time > 0 and oldest or now
    if born < limit then aged[#aged + 1] = { first_id = row[5], last_id = row[6], entire = since > 0 } end
    if times[#times] ~= time then times[#times + 1] = time end
  end, SURVEY)
  return times, mend, aged
end

-- Housekeeping is put off while the disk is full, as listing does not depend on it.
local function list_times()
  local now, days = get_timestamp(), setting("max_age_days")
  local state = read_state()
  local trusted, clock, news = judge_clock(state, now)
  local limit = days > 0 and now - state.newest_time < CLOCK_LEAP and now - days * DAY or -1
  local times, mend, aged = survey(now, trusted, limit)
  if news then mend[#mend + 1] = "UPDATE accounts SET " .. clock .. " WHERE one = 1" end
  if #mend + #aged + slack() == 0 then return times end
  local done, message = pcall(function()
    for at = 1, #aged do drop_aged(aged[at], limit) end
    transaction(function()
      for at = 1, #mend do database.execute(mend[at]) end
    end)
  end)
  if not done then
    if not is_full(message) then error(message, 0) end
    pcall(database.execute, "ROLLBACK")
  end
  return (survey(now, trusted, limit))
end

local function list_ids(time)
  local ranges, open_batches, ids, sorted = {}, 0, {}, true
  database.each(function(row)
    ranges[#ranges + 1] = row[1] .. " AND " .. row[2]
    open_batches = open_batches + 1 - row[3]
  end, "SELECT CAST(first_id AS TEXT), CAST(last_id AS TEXT), sealed FROM batches WHERE %s ORDER BY batch",
    batches_of(time))
  if open_batches > 0 then
    transaction(function()
      database.execute("UPDATE batches SET sealed = 1 WHERE sealed = 0 AND " .. batches_of(time))
    end)
  end
  for at = 1, #ranges do
    -- Shifted into 32 signed bits, which saves a text for each id.
    database.each(function(row)
      local id = row[1] + 2147483648
      sorted = sorted and id > (ids[#ids] or 0)
      ids[#ids + 1] = id
    end, "SELECT id - 2147483648 FROM reports WHERE id BETWEEN %s ORDER BY id", ranges[at])
  end
  if not sorted then table.sort(ids) end
  return ids
end

-- Every value is a number, hexadecimal or Base64 and needs no quoting; whatever a damaged row holds, the text
-- stays JSON.
local function read_report(id)
  local row = database.row("SELECT module, type, CAST(aggregationid AS TEXT), CAST(count AS TEXT), "
    .. "CAST(size AS TEXT), CAST(first_time AS TEXT), CAST(last_time AS TEXT), lower(hex(sha256)), body, untrusted, "
    .. "store FROM reports CROSS JOIN contents USING(id) CROSS JOIN accounts ON one = 1 WHERE reports.id = " .. id)
  if not row then return nil end
  for column = 1, 7 do row[column] = whole(tonumber(row[column]) or 0) end
  local size, least = tonumber(row[5]), setting("check_hash_min_size")
  return table.concat({ '{"module":', row[1], ',"type":', row[2], ',"aggregationid":', row[3], ',"count":', row[4],
    ',"size":', row[5], ',"first_time":', row[6], ',"last_time":', row[7], ',"SHA256":"', row[8],
    '","uid":"', row[11], "-", id, '"', least > 0 and size >= least and ',"check_hash":1' or "",
    row[10] == 0 and "" or ',"clock":"untrusted"', ',"encoding":"deflate+base64","content":"',
    (string.gsub(row[9], "[^A-Za-z0-9+/=]", "")), '"}' })
end

local function remove(id)
  return transaction(function() return delete_report(id, "removed") end)
end

local function count_again(key)
  return transaction(function()
    local id, count = find_alike(key, "")
    if not id then return 0 end
    local now = get_timestamp()
    local _, clock = judge_clock(read_state(), now)
    join(id, now, clock)
    return count + 1
  end)
end

function save_report(report)
  local stored, result = pcall(serve, store_report, { module = report.module, type = report.type,
    aggregationid = unsigned(report.aggregationid), content = report.content })
  if stored then return result end
  if not is_full(result) then error(result, 0) end
  WARN("report refused, " .. result)
  return 0
end

function ext_aggregation(data)
  return serve(count_again, file_key(data.caller, data.filehash))
end

function get_all_dispatch_times()
  return serve(list_times)
end

function get_ids_by_dispatch_time(time)
  return serve(list_ids, time)
end

function get_report_as_json_by_id(id)
  return serve(read_report, whole(id)) or error("unknown report id: " .. whole(id), 0)
end

function remove_report_by_id(id)
  return serve(remove, whole(id))
end
