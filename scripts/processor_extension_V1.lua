-- The report store: one SQLite database, six functions that the agent calls (see docs/storage_script.md).
--
-- The interpreter is rebuilt several times per pass, so loading this text costs nothing: the database is
-- opened by the first call and stays open while the interpreter lives. Every call comes under an
-- inter-process lock of the agent; SQLite's own locks only matter against other programs, such as a
-- technician's shell. `get_db_size` is not used: closing any descriptor of the file drops the POSIX locks
-- that SQLite holds on it in this process.
--
-- How reports are kept. Ids only grow. Reports that are stored one after the other for the same dispatch
-- time form a batch: a range of ids, a dispatch time and a seal. Listing a time seals its batches, which
-- flips one flag in each; a later report then begins a new batch of the same time. So sealing, and moving
-- a time that a wrong clock has set, never touch the reports themselves.

local SCHEMA_VERSION = 1

-- Small pages, because a save touches four or five of them and each is written twice, once to the journal:
-- of 512, 1024, 2048 and 4096 bytes this is the one that keeps a saved KiB within 20 KiB of writing and
-- the trees shallow (docs/operations.md has the figures).
local PAGE_SIZE = 1024

-- How long a call waits for another SQLite client before it fails with "database is locked".
local BUSY_WAIT_MS = 2000

-- All ids take five bytes as keys (2^28 to 2^32 - 1) and every table is a plain rowid table without
-- indexes. With keys of one length a deletion can only shrink the trees: it never needs a new page, and so
-- never a free byte on the disk. A fresh store begins at a random id below 2^31, so that ids which a
-- sender still holds from a store that was set aside name nothing in the new one.
local LOWEST_ID, ID_SPREAD = 268435456, 1879048192
local NO_LAST_ID = "1099511627776"

-- Pages that one call gives back to the file system at most, and free pages that are never given back
-- because the next save needs some.
local SHRINK_STEP, SHRINK_KEEP = 64, 32

-- Reports that go for age in one transaction.
local DROP_STEP = 256

local HOUR, DAY = 3600, 86400

-- Seconds since 1970 of this script's release. A clock that shows less has never been set.
local RELEASE_TIME = 1704067200

-- After so many seconds of steady running at an earlier time, the store takes that the time it has seen
-- before came from a clock set wrongly ahead.
local CLOCK_PROOF = 7 * DAY

-- A key of `batches` is the dispatch time and a number within it. The offset gives all of them one length.
local BATCH_BASE, BATCH_BITS = "0x4000000000000000", 24

local SCHEMA = {
  [[CREATE TABLE accounts(
      one INTEGER PRIMARY KEY CHECK(one = 1),
      saved INTEGER NOT NULL DEFAULT 0, joined INTEGER NOT NULL DEFAULT 0,
      removed INTEGER NOT NULL DEFAULT 0, dropped_space INTEGER NOT NULL DEFAULT 0,
      dropped_age INTEGER NOT NULL DEFAULT 0, refused INTEGER NOT NULL DEFAULT 0,
      set_aside INTEGER NOT NULL DEFAULT 0,
      next_id INTEGER NOT NULL, newest_batch INTEGER NOT NULL DEFAULT 0,
      newest_time INTEGER NOT NULL DEFAULT 0, earlier_since INTEGER NOT NULL DEFAULT 0,
      journal_pages INTEGER NOT NULL DEFAULT 0, store TEXT NOT NULL)]],
  [[CREATE TABLE batches(
      batch INTEGER PRIMARY KEY, first_id INTEGER NOT NULL, last_id INTEGER NOT NULL,
      sealed INTEGER NOT NULL DEFAULT 0, kept_since INTEGER NOT NULL DEFAULT 0)]],
  [[CREATE TABLE reports(
      id INTEGER PRIMARY KEY, module INTEGER NOT NULL, type INTEGER NOT NULL,
      aggregationid INTEGER NOT NULL, count INTEGER NOT NULL, first_time INTEGER NOT NULL,
      last_time INTEGER NOT NULL, untrusted INTEGER NOT NULL, like_key INTEGER, file_key INTEGER)]],
  [[CREATE TABLE contents(
      id INTEGER PRIMARY KEY, size INTEGER NOT NULL, sha256 BLOB NOT NULL, body TEXT NOT NULL)]],
  -- The newest report under a hash of what makes reports alike, or of caller and file hash.
  [[CREATE TABLE alike(
      key INTEGER PRIMARY KEY, id INTEGER NOT NULL, batch INTEGER NOT NULL)]],
}

local connection
local times_set_aside = 0

-- The device's Lua integers have 32 bits, signed: numbers leave as formatted doubles, larger ones come
-- back from SQLite as text, and what the agent narrowed on the way in is widened again.

local function whole(number)
  return string.format("%.0f", number)
end

local function unsigned(number)
  return number < 0 and number + 4294967296 or number
end

local function execute(sql)
  local result, message = connection:execute(sql)
  if not result then error((string.gsub(message, "^LuaSQL: ", "")), 0) end
  return result
end

-- Calls visit(row) for each row; the row table is reused, and visit must not raise an error.
local function each(sql, visit)
  local cursor = execute(sql)
  if type(cursor) == "number" then return end
  local row, message = cursor:fetch({}, "n")
  while row do
    visit(row)
    row, message = cursor:fetch(row, "n")
  end
  cursor:close()
  if message then error((string.gsub(message, "^LuaSQL: ", "")), 0) end
end

-- The one row of a query, or nil.
local function one(sql)
  local found
  each(sql, function(row) found = found or { unpack(row, 1, 16) } end)
  return found
end

local function number_of(sql)
  local row = one(sql)
  return row and tonumber(row[1]) or 0
end

local function close()
  if not connection then return end
  pcall(connection.execute, connection, "ROLLBACK")
  pcall(connection.close, connection)
  connection = nil
end

local function is_full(message)
  return string.find(message, "database or disk is full", 1, true) ~= nil
end

-- Only these mean that the file will never serve again; a busy, full or failing disk passes.
local function is_damage(message)
  return string.find(message, "malformed", 1, true) ~= nil
    or string.find(message, "not a database", 1, true) ~= nil
    or string.find(message, "unknown schema version", 1, true) ~= nil
end

-- Gives free pages back when they are more than half of the file.
local function shrink()
  local free = number_of("PRAGMA freelist_count")
  if free > SHRINK_KEEP and free * 2 > number_of("PRAGMA page_count") then
    each("PRAGMA incremental_vacuum(" .. math.min(free - SHRINK_KEEP, SHRINK_STEP) .. ")", function() end)
  end
end

-- Runs body in a transaction of its own, and shrinks the file in the same one. What body changes must fit
-- in the journal's kept room; should shrinking not fit, it is left out.
local function transaction(body)
  execute("BEGIN IMMEDIATE")
  local result = body()
  local shrunk, message = pcall(shrink)
  if not shrunk and not is_full(message) then error(message, 0) end
  if not shrunk then
    pcall(execute, "ROLLBACK")
    execute("BEGIN IMMEDIATE")
    result = body()
  end
  execute("COMMIT")
  return result
end

local function exists(path)
  return (os.rename(path, path)) ~= nil
end

local function page_limit()
  return math.floor(unsigned(DB_MAX_SIZE) / PAGE_SIZE)
end

-- Pages that the journal of a removal or a seal holds at most. Removing a report writes, beside the header
-- and the accounts, in each of four trees no more than three pages on each of four levels and the root;
-- of the pages that its content gives back, only those that the free list uses as trunks (each lists 248
-- others) and the pointer maps (one for each 204 pages), never the freed pages themselves, since
-- secure_delete is off. Shrinking by a page moves one: the page, its place, its parent, the page before it.
local function journal_pages()
  local file_pages = math.max(page_limit(), number_of("PRAGMA page_count"), 1024)
  local bound = 1024
  while bound < file_pages do bound = bound * 2 end
  return math.ceil(bound / 204) + math.ceil(bound / 248) + 2 + 4 * 13 + 4 * SHRINK_STEP
end

-- Makes the journal file large enough for the above and leaves it so (journal_mode PERSIST overwrites it in
-- place), so that a full disk stops neither removals nor seals. To have a transaction that journals so many
-- pages, a filler of that size is written and then wiped with secure_delete, which saves each page first.
local function reserve_journal(pages)
  execute("PRAGMA max_page_count = 4294967294")
  execute("BEGIN IMMEDIATE")
  execute("UPDATE accounts SET journal_pages = 0")
  execute("REPLACE INTO contents VALUES(1, 0, x'', zeroblob(" .. pages * PAGE_SIZE .. "))")
  execute("COMMIT")
  execute("PRAGMA secure_delete = ON")
  execute("BEGIN IMMEDIATE")
  execute("DELETE FROM contents WHERE id = 1")
  execute("UPDATE accounts SET journal_pages = " .. pages)
  execute("COMMIT")
  execute("PRAGMA secure_delete = OFF")
  each("PRAGMA incremental_vacuum(" .. pages .. ")", function() end)
end

local function keep_journal()
  local pages = journal_pages()
  execute("PRAGMA journal_size_limit = " .. (pages + 8) * (PAGE_SIZE + 8))
  local kept = number_of("SELECT journal_pages FROM accounts")
  if kept < pages or not exists(PATH_TO_DB .. "-journal") then
    local made, message = pcall(reserve_journal, pages)
    if not made then
      pcall(execute, "ROLLBACK")
      execute("PRAGMA secure_delete = OFF")
      if is_damage(message) then error(message, 0) end
    end
  end
  if page_limit() > 0 then execute("PRAGMA max_page_count = " .. page_limit()) end
end

local function create_schema()
  execute("BEGIN IMMEDIATE")
  for step = 1, #SCHEMA do execute(SCHEMA[step]) end
  execute("INSERT INTO accounts(one, set_aside, next_id, store) VALUES(1, " .. times_set_aside .. ", "
    .. LOWEST_ID .. " + abs(random() % " .. ID_SPREAD .. "), lower(hex(randomblob(16))))")
  execute("PRAGMA user_version = " .. SCHEMA_VERSION)
  execute("COMMIT")
end

-- A rollback journal rather than a write-ahead log: the connection is closed after nearly every call, and
-- with the last connection a log is written back and deleted, which costs more syncs than it saves, and
-- leaves no allocated room behind. The kept (PERSIST) journal is overwritten in place; in it, FULL already
-- makes a commit durable, as the commit is the synced overwriting of the journal's header.
--
-- The first statement that reads the file rolls back what a killed process left and would delete the journal
-- after it, as the mode cannot be set before reading; under locking_mode EXCLUSIVE it is kept.
local PREPARATION = {
  "PRAGMA locking_mode = EXCLUSIVE",
  "PRAGMA page_size = " .. PAGE_SIZE,
  "PRAGMA auto_vacuum = INCREMENTAL",
  "PRAGMA journal_mode = PERSIST",
  "PRAGMA synchronous = FULL",
  "PRAGMA secure_delete = OFF",
  "PRAGMA temp_store = MEMORY",
  "PRAGMA cache_size = -256",
  "PRAGMA locking_mode = NORMAL",
}

local function open()
  if connection then return end
  local message
  connection, message = sqlite3.open(PATH_TO_DB, BUSY_WAIT_MS)
  if not connection then error((string.gsub(message, "^LuaSQL: ", "")), 0) end
  for step = 1, #PREPARATION do one(PREPARATION[step]) end
  local version = number_of("PRAGMA user_version")
  if version == 0 then
    create_schema()
  elseif version ~= SCHEMA_VERSION then
    error("unknown schema version " .. version, 0)
  end
  keep_journal()
end

-- Keeps a damaged database for an examination, unless one is already kept, and clears the way for a fresh
-- one. The journal goes first: beside a fresh database an old one could be taken for its own.
local function set_aside(message)
  local known, times = pcall(number_of, "SELECT set_aside FROM accounts")
  times_set_aside = (known and times or times_set_aside) + 1
  close()
  ERROR("report store is damaged and set aside: " .. message)
  local kept = REPORTER_DATA_DIR .. "db_reports.broken"
  local keep = not exists(kept)
  for _, suffix in pairs({ "-journal", "-wal", "-shm", "" }) do
    if not (keep and os.rename(PATH_TO_DB .. suffix, kept .. suffix)) then os.remove(PATH_TO_DB .. suffix) end
  end
end

-- Runs one call of the agent: opens the database if need be, and once more with a fresh one when it turns
-- out damaged. After any failure the connection is closed, so that nothing half done stays behind.
local function serve(operation, argument)
  local function attempt()
    open()
    return operation(argument)
  end
  local done, result = pcall(attempt)
  if not done and is_damage(tostring(result)) then
    set_aside(tostring(result))
    done, result = pcall(attempt)
  end
  if not done then
    close()
    error("report store: " .. tostring(result), 0)
  end
  return result
end

local ESCAPES = { ['"'] = "\\u0022", ["\\"] = "\\u005c" }

-- CONFIG still has the comments of its file, which are no JSON. With quotes and backslashes in strings
-- written as numbers, a string ends at the next quote.
local function strip_comments(text)
  text = string.gsub(text, '\\(["\\])', ESCAPES)
  local kept, at = {}, 1
  while at <= #text do
    local _, last = string.find(text, "^//[^\n]*", at)
    if not last then _, last = string.find(text, "^/%*.-%*/", at) end
    if not last then
      _, last = string.find(text, '^"[^"]*"', at)
      if not last then _, last = string.find(text, '^[^"/]+', at) end
      last = last or at
      kept[#kept + 1] = string.sub(text, at, last)
    end
    at = last + 1
  end
  return table.concat(kept)
end

local settings

-- A number of the configuration's "processor" object; 0 when it is absent or no positive number.
local function setting(name)
  if not settings then
    local read, root = pcall(json.decode, strip_comments(CONFIG))
    settings = read and type(root) == "table" and root.processor
    if type(settings) ~= "table" then settings = {} end
  end
  local value = settings[name]
  return type(value) == "number" and value > 0 and math.floor(value) or 0
end

-- "HH:MM,HH:MM,..." as a list of hour and minute, or nil.
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

-- DISPATCHING_TIME as a table with one of: at_once, period (seconds), times (list of hour and minute); and
-- the device's offset in seconds.
local function read_schedule()
  if schedule then return schedule end
  local spread = setting("dispatching_spread")
  local period = string.match(DISPATCHING_TIME, "^%d+$") and tonumber(DISPATCHING_TIME)
  schedule = { at_once = period == 0, period = period, times = not period and clock_times(DISPATCHING_TIME) }
  if not period and not schedule.times then
    ERROR("bad dispatching time, 03:00 is used instead: " .. DISPATCHING_TIME)
    schedule.times = { { hour = 3, min = 0 } }
  end
  schedule.offset = spread > 0 and tonumber(string.sub(sha256(DUID or ""), 1, 8), 16) % spread or 0
  return schedule
end

-- The first of the local times after a moment. mktime takes the day's overflow and the hours that a change
-- of daylight saving time skips or repeats; the day after next is for a time that such a change moves.
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

-- The time at which a report of this moment is due, strictly later unless all is due at once.
local function next_dispatch_time(now)
  local plan = read_schedule()
  if plan.at_once then return now end
  local moment = now - plan.offset
  if plan.period then return moment - moment % plan.period + plan.period + plan.offset end
  return next_clock_time(plan.times, moment) + plan.offset
end

local function batch_key(time, number)
  return "(" .. BATCH_BASE .. " + (" .. whole(time) .. " << " .. BATCH_BITS .. ") + " .. number .. ")"
end

local function batches_of(time)
  return "batch BETWEEN " .. batch_key(time, 0) .. " AND " .. batch_key(time, 2 ^ BATCH_BITS - 1)
end

local BATCH_TIME = "CAST((batch - " .. BATCH_BASE .. ") >> " .. BATCH_BITS .. " AS TEXT)"

-- The state of the store together with its newest batch, whose fields are nil when it is gone.
local function read_state()
  local row = one("SELECT CAST(next_id AS TEXT), CAST(newest_time AS TEXT), CAST(earlier_since AS TEXT), "
    .. "CAST(batch AS TEXT), " .. BATCH_TIME .. ", sealed "
    .. "FROM accounts LEFT JOIN batches ON batch = newest_batch WHERE one = 1")
  return { next_id = tonumber(row[1]), newest_time = tonumber(row[2]), earlier_since = tonumber(row[3]),
    batch = row[4], batch_time = tonumber(row[5]), batch_open = row[6] == 0 }
end

-- Whether the clock can be believed, the assignments that record what it showed, and whether they say
-- something new. Below the newest time seen it is believed again after running on for CLOCK_PROOF without
-- falling back, as it does at each start of a device that keeps no time.
local function judge_clock(state, now)
  local trusted = now >= RELEASE_TIME and now >= state.newest_time - DAY
  local newest, earlier = math.max(state.newest_time, trusted and now or 0), 0
  if not trusted and now >= RELEASE_TIME then
    earlier = state.earlier_since > 0 and math.min(state.earlier_since, now) or now
    if now - earlier > CLOCK_PROOF then newest, earlier = now, 0 end
  end
  local record = "newest_time = " .. whole(newest) .. ", earlier_since = " .. whole(earlier)
  return trusted, record, math.abs(newest - state.newest_time) > HOUR or earlier ~= state.earlier_since
end

-- A report that the clock cannot date is due at time 0, that is at the next pass whatever the clock says.
-- What is due at once shares the time of its open batch, so that it aggregates and times stay few.
local function dispatch_time(state, now, trusted)
  if not trusted then return 0 end
  local last = state.batch_time
  if read_schedule().at_once and state.batch_open and last > 0 and last <= now then return last end
  return next_dispatch_time(now)
end

-- Keys of `alike`: 60 bits of a hash, with a leading digit that tells the two kinds apart.
local function like_key(report, time)
  if report.aggregationid == 0 then return nil end
  local parts = { whole(time), whole(report.module), whole(report.type), whole(report.aggregationid) }
  return "0x5" .. string.sub(sha256(table.concat(parts, " ")), 1, 15)
end

local function file_key(caller, filehash)
  return "0x6" .. string.sub(sha256(sha256(caller) .. sha256(filehash)), 1, 15)
end

-- The file key of a content that is a JSON object with both names. Most contents hold no such names, and
-- are not parsed; nesting beyond the parser's depth is taken as no JSON.
local function file_key_of(content)
  if not string.find(content, "^%s*{") or not string.find(content, '"caller"', 1, true)
    or not string.find(content, '"filehash"', 1, true) then
    return nil
  end
  local read, object = pcall(json.decode, content)
  if not read or type(object.caller) ~= "string" or type(object.filehash) ~= "string" then return nil end
  return file_key(object.caller, object.filehash)
end

-- Id and count of the report, not sealed, that stands under a key.
local function find_alike(key, condition)
  local row = one("SELECT CAST(reports.id AS TEXT), CAST(reports.count AS TEXT) FROM alike "
    .. "CROSS JOIN batches ON batches.batch = alike.batch AND sealed = 0 "
    .. "CROSS JOIN reports ON reports.id = alike.id AND reports.id BETWEEN first_id AND last_id "
    .. "WHERE key = " .. key .. condition)
  if row then return row[1], tonumber(row[2]) end
end

local function join(id, now, clock)
  execute("UPDATE reports SET count = count + 1, last_time = " .. whole(now) .. " WHERE id = " .. id)
  execute("UPDATE accounts SET saved = saved + 1, joined = joined + 1, " .. clock .. " WHERE one = 1")
end

-- Deletes a report and counts its occurrences in the account named; returns their number, 0 without one.
local function delete_report(id, account)
  local row = one("SELECT CAST(count AS TEXT), CAST(like_key AS TEXT), CAST(file_key AS TEXT) "
    .. "FROM reports WHERE id = " .. id)
  if not row then return 0 end
  for column = 2, 3 do
    if row[column] then execute("DELETE FROM alike WHERE key = " .. row[column] .. " AND id = " .. id) end
  end
  execute("DELETE FROM contents WHERE id = " .. id)
  execute("DELETE FROM reports WHERE id = " .. id)
  execute("UPDATE accounts SET " .. account .. " = " .. account .. " + " .. row[1] .. " WHERE one = 1")
  return tonumber(row[1])
end

-- Drops the oldest reports until so many pages are to be had within the size limit. Returns false when even
-- an empty store has not so many, and what was dropped.
local function make_room(pages)
  local limit, reports, occurrences = page_limit(), 0, 0
  while limit - number_of("PRAGMA page_count") + number_of("PRAGMA freelist_count") < pages do
    local oldest = one("SELECT CAST(id AS TEXT) FROM reports ORDER BY id LIMIT 1")
    if not oldest then return false end
    occurrences = occurrences + delete_report(oldest[1], "dropped_space")
    reports = reports + 1
  end
  local excess = number_of("PRAGMA page_count") - limit
  if excess > 0 then each("PRAGMA incremental_vacuum(" .. excess .. ")", function() end) end
  return true, reports, occurrences
end

-- The newest batch if it takes a report of this time, else a new one, which ends the range of the former.
local function batch_for(state, time)
  if state.batch_open and state.batch_time == time then return state.batch end
  local id = whole(state.next_id)
  if state.batch then
    execute("UPDATE batches SET last_id = " .. id .. " - 1 WHERE batch = " .. state.batch)
  end
  local last = one("SELECT CAST(batch + 1 AS TEXT) FROM batches WHERE " .. batches_of(time)
    .. " ORDER BY batch DESC LIMIT 1")
  local batch = last and last[1] or batch_key(time, 0)
  execute("INSERT INTO batches(batch, first_id, last_id) VALUES(" .. batch .. ", " .. id .. ", "
    .. NO_LAST_ID .. ")")
  execute("UPDATE accounts SET newest_batch = " .. batch .. " WHERE one = 1")
  return batch
end

local function insert_report(state, report, new)
  local id = whole(state.next_id)
  local batch = batch_for(state, new.time)
  local row = { id, whole(report.module), whole(report.type), whole(report.aggregationid), "1",
    whole(new.now), whole(new.now), new.trusted and "0" or "1", new.like_key or "NULL", new.file_key or "NULL" }
  execute("INSERT INTO reports VALUES(" .. table.concat(row, ", ") .. ")")
  execute("INSERT INTO contents VALUES(" .. id .. ", " .. #report.content .. ", x'" .. sha256(report.content)
    .. "', '" .. new.body .. "')")
  for _, key in pairs({ new.like_key or false, new.file_key or false }) do
    if key then execute("REPLACE INTO alike VALUES(" .. key .. ", " .. id .. ", " .. batch .. ")") end
  end
  execute("UPDATE accounts SET saved = saved + 1, next_id = " .. id .. " + 1, " .. new.clock .. " WHERE one = 1")
  return state.next_id
end

local function refuse(size)
  execute("ROLLBACK")
  WARN("report refused, too large for the store: " .. size .. " bytes")
  execute("UPDATE accounts SET refused = refused + 1 WHERE one = 1")
  return 0
end

-- Pages that a body of so many bytes takes at most: its own, and a split in each tree that gains a row.
local function pages_for(length)
  local own = math.ceil(length / (PAGE_SIZE - 4))
  return own + math.ceil(own / 204) + 14
end

local function store_report(report)
  local now = get_timestamp()
  execute("BEGIN IMMEDIATE")
  local state = read_state()
  local new = { now = now }
  new.trusted, new.clock = judge_clock(state, now)
  new.time = dispatch_time(state, now, new.trusted)
  new.like_key = like_key(report, new.time)
  local id = new.like_key and find_alike(new.like_key, " AND module = " .. whole(report.module) .. " AND type = "
    .. whole(report.type) .. " AND aggregationid = " .. whole(report.aggregationid))
  if id then
    join(id, now, new.clock)
    execute("COMMIT")
    return tonumber(id)
  end
  new.body = base64_encode(deflate(report.content))
  new.file_key = file_key_of(report.content)
  local fits, reports, occurrences = true, 0, 0
  if page_limit() > 0 then fits, reports, occurrences = make_room(pages_for(#new.body)) end
  if not fits then return refuse(#report.content) end
  id = insert_report(state, report, new)
  shrink()
  execute("COMMIT")
  if reports > 0 then
    WARN("dropped for space: " .. reports .. " reports, " .. whole(occurrences) .. " occurrences")
  end
  return id
end

-- Drops the reports of a batch that are older than the limit (all of it, where its own age counts), some at
-- a time so that the journal stays small. Returns how many reports and occurrences went.
local function drop_aged(aged, limit)
  local reports, occurrences, more = 0, 0, true
  local function drop_some()
    local some = { reports = 0, occurrences = 0 }
    while some.reports < DROP_STEP do
      local row = one("SELECT CAST(id AS TEXT), CAST(first_time AS TEXT) FROM reports WHERE id BETWEEN "
        .. aged.first_id .. " AND " .. aged.last_id .. " ORDER BY id LIMIT 1")
      if not row or not (aged.entire or tonumber(row[2]) < limit) then return some end
      some.occurrences = some.occurrences + delete_report(row[1], "dropped_age")
      some.reports = some.reports + 1
    end
    return some
  end
  while more do
    local some = transaction(drop_some)
    reports, occurrences = reports + some.reports, occurrences + some.occurrences
    more = some.reports == DROP_STEP
  end
  WARN("dropped for age: " .. reports .. " reports, " .. whole(occurrences) .. " occurrences")
end

-- A time that a wrong clock or another schedule has set moves to the next regular one.
local function move_batch(batch, time, now)
  return "UPDATE batches SET batch = (SELECT coalesce(max(batch) + 1, " .. batch_key(time, 0)
    .. ") FROM batches WHERE " .. batches_of(time) .. "), kept_since = " .. whole(now)
    .. ", last_id = min(last_id, (SELECT next_id - 1 FROM accounts WHERE one = 1)) WHERE batch = " .. batch
end

-- All batches with the time of their oldest report, one seek each.
local SURVEY = "SELECT CAST(batch AS TEXT), " .. BATCH_TIME .. ", CAST(kept_since AS TEXT), "
  .. "CAST(first_time AS TEXT), CAST(first_id AS TEXT), CAST(last_id AS TEXT) FROM batches "
  .. "LEFT JOIN reports ON id = (SELECT id FROM reports WHERE id BETWEEN first_id AND last_id ORDER BY id LIMIT 1) "
  .. "WHERE batch >= " .. BATCH_BASE .. " ORDER BY batch"

-- The dispatch times of stored reports, and what is to be done about batches: statements that mend them,
-- and ranges with reports beyond the age limit.
local function survey(now, trusted, limit)
  local latest, times, mend, aged = next_dispatch_time(now), {}, {}, {}
  each(SURVEY, function(row)
    local batch, time, since, oldest = row[1], tonumber(row[2]), tonumber(row[3]), tonumber(row[4])
    if not oldest then
      mend[#mend + 1] = "DELETE FROM batches WHERE batch = " .. batch
      return
    end
    if time > latest then
      mend[#mend + 1] = move_batch(batch, latest, now)
      mend[#mend + 1] = "UPDATE accounts SET newest_batch = 0 WHERE one = 1 AND newest_batch = " .. batch
    elseif time == 0 and since == 0 and trusted then
      mend[#mend + 1] = "UPDATE batches SET kept_since = " .. whole(now) .. " WHERE batch = " .. batch
    end
    -- The age of undated reports counts from the first pass under a clock that is believed.
    local born = since > 0 and since or time > 0 and oldest or now
    if born < limit then aged[#aged + 1] = { first_id = row[5], last_id = row[6], entire = since > 0 } end
    if times[#times] ~= time then times[#times + 1] = time end
  end)
  return times, mend, aged
end

-- Housekeeping that a full disk may put off, as the call does not depend on it.
local function unless_full(work)
  local done, message = pcall(work)
  if done then return end
  pcall(execute, "ROLLBACK")
  if not is_full(message) then error(message, 0) end
  TRACE("housekeeping is put off: " .. message)
end

local function list_times()
  local now, days = get_timestamp(), setting("max_age_days")
  local trusted, clock, news = judge_clock(read_state(), now)
  local limit = days > 0 and now - days * DAY or -1
  local times, mend, aged = survey(now, trusted, limit)
  if news then mend[#mend + 1] = "UPDATE accounts SET " .. clock .. " WHERE one = 1" end
  if #mend + #aged == 0 then return times end
  unless_full(function()
    for at = 1, #aged do drop_aged(aged[at], limit) end
    if #mend == 0 then return end
    transaction(function()
      for at = 1, #mend do execute(mend[at]) end
    end)
  end)
  return (survey(now, trusted, limit))
end

local function list_ids(time)
  local ranges, unsealed, ids, sorted = {}, 0, {}, true
  each("SELECT CAST(first_id AS TEXT), CAST(last_id AS TEXT), sealed FROM batches WHERE " .. batches_of(time)
    .. " ORDER BY batch", function(row)
      ranges[#ranges + 1] = row[1] .. " AND " .. row[2]
      unsealed = unsealed + 1 - row[3]
    end)
  if unsealed > 0 then
    transaction(function()
      execute("UPDATE batches SET sealed = 1 WHERE sealed = 0 AND " .. batches_of(time))
    end)
  end
  for at = 1, #ranges do
    -- Shifted into 32 signed bits, which saves a text for each id.
    each("SELECT id - 2147483648 FROM reports WHERE id BETWEEN " .. ranges[at] .. " ORDER BY id", function(row)
      local id = row[1] + 2147483648
      sorted = sorted and id > (ids[#ids] or 0)
      ids[#ids + 1] = id
    end)
  end
  if not sorted then table.sort(ids) end
  return ids
end

-- Every value is a number, hexadecimal or Base64 and is put in as it is; whatever a damaged row holds, the
-- text stays JSON.
local function read_report(id)
  local row = one("SELECT module, type, CAST(aggregationid AS TEXT), CAST(count AS TEXT), CAST(size AS TEXT), "
    .. "lower(hex(sha256)), body, CAST(first_time AS TEXT), CAST(last_time AS TEXT), untrusted, store "
    .. "FROM reports CROSS JOIN contents USING(id) CROSS JOIN accounts ON one = 1 WHERE reports.id = " .. id)
  if not row then return nil end
  for _, column in pairs({ 1, 2, 3, 4, 5, 8, 9 }) do row[column] = whole(tonumber(row[column]) or 0) end
  if string.find(row[7], "[^%w+/=]") then row[7] = string.gsub(row[7], "[^%w+/=]", "") end
  local least = setting("check_hash_min_size")
  return table.concat({ '{"module":', row[1], ',"type":', row[2], ',"aggregationid":', row[3],
    ',"count":', row[4], ',"size":', row[5], ',"SHA256":"', row[6], '","encoding":"deflate+base64"',
    ',"first_time":', row[8], ',"last_time":', row[9], ',"uid":"', row[11], "-", id, '"',
    least > 0 and tonumber(row[5]) >= least and ',"check_hash":1' or "",
    row[10] == 0 and "" or ',"clock":"untrusted"', ',"content":"', row[7], '"}' })
end

local function remove(id)
  return transaction(function() return delete_report(id, "removed") end)
end

local function count_again(key)
  local now = get_timestamp()
  return transaction(function()
    local id, count = find_alike(key, "")
    if not id then return 0 end
    local _, clock = judge_clock(read_state(), now)
    join(id, now, clock)
    return count + 1
  end)
end

-- The contract with the agent.

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
