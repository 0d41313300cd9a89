-- Batches, and which reports are alike.
--
-- Ids only grow. Reports stored one after the other for the same dispatch time form a batch: a range of
-- ids, their time and a seal. Listing a time seals its batches by one flag in each, and a later report
-- begins a new batch of that time. So the reports themselves are not touched, neither by sealing nor when
-- a time that a wrong clock has set is moved.

-- Bytes of the largest content that is looked into for caller and file hash.
local PARSED_SIZE = 1048576

local function batch_key(time)
  return BATCH_BASE + time * BATCHES
end

local function time_of(batch)
  return math.floor((batch - BATCH_BASE) / BATCHES)
end

local function batches_of(time)
  return string.format("batch BETWEEN %.0f AND %.0f", batch_key(time), batch_key(time + 1) - 1)
end

-- The key for one more batch of a time, in SQL.
local function next_batch(time)
  return string.format("(SELECT coalesce(max(batch) + 1, %.0f) FROM batches WHERE %s)", batch_key(time),
    batches_of(time))
end

-- The state of the store. `batch` is the newest one while it takes reports: neither sealed nor ended, as a moved one is.
local function read_state()
  return database.row("SELECT " .. wide("next_id, latest_day, listed_days, newest_batch, batch") .. " FROM accounts "
    .. "LEFT JOIN batches ON batch = newest_batch AND sealed = 0 AND last_id = %.0f WHERE one = 1", NO_LAST_ID)
end

-- A report that is due at once gets the time of the open batch, so that it can join and the times stay few.
local function dispatch_time(state, now)
  local last = state.batch and time_of(state.batch)
  if last and last <= now and read_schedule().period == 0 then return last end
  return next_dispatch_time(now)
end

-- The newest batch if it takes reports of this time, or else a new one. A new one ends the range of the newest, and
-- removes the batches that dropping for space has emptied.
local function batch_for(state, time)
  if state.batch and time_of(state.batch) == time then return state.batch end
  database.execute("UPDATE batches SET last_id = min(last_id, %.0f) WHERE batch = %.0f", state.next_id - 1,
    state.newest_batch)
  database.execute("DELETE FROM batches WHERE batch >= %.0f AND last_id < (SELECT id FROM reports WHERE id > 0 "
    .. "ORDER BY id LIMIT 1)", BATCH_BASE)
  local batch = database.number("SELECT %s + 0.0", next_batch(time))
  database.execute("INSERT INTO batches(batch, first_id, last_id) VALUES(%.0f, %.0f, %.0f)", batch, state.next_id,
    NO_LAST_ID)
  account("newest_batch = %.0f", batch)
  return batch
end

-- A key of `alike` is a digit that tells the two kinds apart and 60 bits of a hash. In Lua it is text.
local function alike_key(kind, text)
  return "0x" .. kind .. string.sub(sha256(text), 1, 15)
end

local function like_key(report, time)
  if report.aggregationid == 0 then return nil end
  return alike_key(5, string.format("%.0f %d %d %.0f", time, report.module, report.type, report.aggregationid))
end

local function file_key(caller, filehash)
  return alike_key(6, sha256(caller) .. sha256(filehash))
end

-- The file key of a content that is a JSON object with both names, else nil. Most contents lack the names and are
-- not parsed. A content whose parsed form would take too much memory is not parsed either. One that nests too deeply
-- for the parser counts as no JSON.
local function file_key_of(content)
  if #content > PARSED_SIZE or not string.find(content, "^%s*{")
    or not string.find(content, '"caller"', 1, true) or not string.find(content, '"filehash"', 1, true) then
    return nil
  end
  local read, object = pcall(json.decode, content)
  if not read or type(object.caller) ~= "string" or type(object.filehash) ~= "string" then return nil end
  return file_key(object.caller, object.filehash)
end

-- Id and count of the newest report under a key, nil when it is sealed or gone.
local function find_alike(key)
  return database.row("SELECT reports.id + 0.0 AS id, coalesce(count, 1) + 0.0 AS count FROM alike "
    .. "CROSS JOIN batches ON batches.batch = alike.batch AND sealed = 0 "
    .. "CROSS JOIN reports ON reports.id = alike.id AND reports.id BETWEEN first_id AND last_id "
    .. "WHERE key = " .. key)
end

local function join(id, now)
  database.execute("UPDATE reports SET count = coalesce(count, 1) + 1, last_time = %.0f WHERE id = %.0f", now, id)
  account("saved = saved + 1, joined = joined + 1")
end

local function bounded(number, least, most)
  return math.max(least, math.min(most, number or least))
end

-- Brings the numbers of a report's row within what the agent can take, whatever a damaged row holds.
local function bound_row(row)
  row.module, row.type = bounded(row.module, -32768, 32767), bounded(row.type, -32768, 32767)
  row.aggregationid, row.count = bounded(row.aggregationid, 0, 2 ^ 32 - 1), bounded(row.count, 1, 2 ^ 31 - 1)
  row.first_time, row.last_time = bounded(row.first_time, -2 ^ 53, 2 ^ 53), bounded(row.last_time, -2 ^ 53, 2 ^ 53)
end

-- Deletes a report and adds its occurrences to an account; returns their number, 0 without a report.
local function delete_report(id, name)
  local report = database.row("SELECT count + 0.0 AS count, CAST(like_key AS INTEGER) || '' AS like, "
    .. "CAST(file_key AS INTEGER) || '' AS file FROM reports WHERE id = %.0f", id)
  if not report then return 0 end
  bound_row(report)
  for _, key in pairs({ report.like, report.file }) do
    database.execute("DELETE FROM alike WHERE key = %s AND id = %.0f", key, id)
  end
  database.execute("DELETE FROM contents WHERE id = %.0f", id)
  database.execute("DELETE FROM reports WHERE id = %.0f", id)
  account("%s = %s + %.0f", name, name, report.count)
  return report.count
end

-- Deletes the reports that a query names, one after the other, until `wanted` pages are free or it names none. The query
-- goes on from the place that it named with the last report, so that it passes nothing twice.
-- Returns the numbers of reports and of occurrences that went.
local function drop(query, wanted, name)
  local reports, occurrences, place = 0, 0, 1
  while free_pages() < wanted do
    local report = database.row(query, place)
    if not report then break end
    place = report.place
    reports, occurrences = reports + 1, occurrences + delete_report(report.id, name)
  end
  return { reports = reports, occurrences = occurrences }
end

local function tell(dropped, reason)
  if not dropped or dropped.reports == 0 then return end
  WARN("dropped for " .. reason .. ": " .. dropped.reports .. " reports, " .. whole(dropped.occurrences)
    .. " occurrences")
end
