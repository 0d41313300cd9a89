-- The six functions that the agent calls.

-- Pages that one listing frees at most by dropping reports for their age; it gives back as many.
local AGED_PAGES = SHRINK_ROUNDS * SHRINK_STEP

-- Pages that a body of so many bytes adds at most: its own, and those of a split in each tree that gains a row.
local function pages_for(length)
  local own = math.ceil(length / (PAGE_SIZE - 4))
  return own + math.ceil(own / math.floor(PAGE_SIZE / 5)) + 20
end

local function oldest_report()
  return database.number("SELECT id + 0.0 FROM reports WHERE id > 0 ORDER BY id LIMIT 1")
end

-- Drops the oldest reports until `need` pages fit within the bound; returns what went. A file above its bound also
-- loses what the call gives back, but no more. Nil when the pages would not fit an empty store either.
local function make_room(need)
  local limit = page_limit()
  if limit == 0 then return { reports = 0 } end
  if unsigned(DB_MAX_SIZE) < LEAST_LIMIT * PAGE_SIZE then
    WARN("db_max_size is too small, taken as " .. LEAST_LIMIT * PAGE_SIZE)
  end
  if need > limit - EMPTY_PAGES then return nil end
  local wanted = need + math.min(page_count() - limit, SHRINK_ROUNDS * SHRINK_STEP)
  local dropped = drop(oldest_report, wanted, "dropped_space")
  return free_pages() >= wanted and dropped or nil
end

local function insert_report(state, report, new)
  local id, batch = state.next_id, batch_for(state, new.time)
  database.execute("INSERT INTO reports(id, module, type, aggregationid, count, first_time, last_time, day, like_key, "
    .. "file_key) VALUES(%.0f, %d, %d, %.0f, 1, %.0f, %.0f, %.0f, %s, %s)", id, report.module, report.type,
    report.aggregationid, new.now, new.now, state.listed_days, new.like_key or "NULL", new.file_key or "NULL")
  database.execute("INSERT INTO contents(id, size, sha256, body) VALUES(%.0f, %d, x'%s', '%s')", id, #report.content,
    sha256(report.content), new.body)
  for _, key in pairs({ like = new.like_key, file = new.file_key }) do
    database.execute("REPLACE INTO alike(key, id, batch) VALUES(%s, %.0f, %.0f)", key, id, batch)
  end
  account("saved = saved + 1, next_id = %.0f", id + 1)
  return id
end

local function store_report(report)
  local dropped
  local id = transaction(function()
    local state, new = read_state(), { now = get_timestamp() }
    new.time = dispatch_time(state, new.now)
    new.like_key = like_key(report, new.time)
    local like = new.like_key and find_alike(new.like_key, string.format(
      " AND module = %d AND type = %d AND aggregationid = %.0f", report.module, report.type, report.aggregationid))
    if like then
      join(like.id, new.now)
      return like.id
    end
    new.body = base64_encode(deflate(report.content))
    new.file_key = file_key_of(report.content)
    dropped = make_room(pages_for(#new.body))
    if dropped then return insert_report(state, report, new) end
    database.execute("ROLLBACK")
    database.execute("BEGIN IMMEDIATE")
    account("refused = refused + 1")
    return 0
  end)
  if id == 0 then WARN("report refused, too large for the store: " .. #report.content .. " bytes") end
  tell(dropped, "space")
  return id
end

local function count_again(key)
  return transaction(function()
    local like = find_alike(key, "")
    if not like then return 0 end
    join(like.id, get_timestamp())
    return like.count + 1
  end)
end

-- All batches, each with its oldest report, which takes one seek.
local SURVEY = "SELECT " .. wide("batch, first_id, last_id, sealed, day") .. " FROM batches LEFT JOIN reports ON id = "
  .. "(SELECT id FROM reports WHERE id BETWEEN first_id AND last_id ORDER BY id LIMIT 1) "
  .. "WHERE batches.batch >= " .. whole(BATCH_BASE) .. " ORDER BY batches.batch"

-- Returns the dispatch times of stored reports, what mends batches, and the batches with reports from before
-- first_day. A time beyond what the schedule can give comes from a clock that was ahead. Once the clock is set, its
-- batch moves to the next regular time, and its range of ids ends here.
local function survey(now, first_day)
  local latest, times, mend, aged = next_dispatch_time(now), {}, {}, {}
  local function end_batch(statement, batch)
    mend[#mend + 1] = function()
      database.execute(statement .. " WHERE batch = %.0f", batch)
      account("newest_batch = CASE newest_batch WHEN %.0f THEN 0 ELSE newest_batch END", batch)
    end
  end
  database.each(function(row)
    local time = time_of(row.batch)
    if not row.day then return end_batch("DELETE FROM batches", row.batch) end
    if time > latest and now >= FIRST_RELEASE then
      end_batch("UPDATE batches SET batch = " .. next_batch(latest)
        .. ", last_id = min(last_id, (SELECT next_id - 1 FROM accounts WHERE one = 1))", row.batch)
    end
    if row.sealed == 1 and row.day < first_day then aged[#aged + 1] = row end
    if times[#times] ~= time then times[#times + 1] = time end
  end, SURVEY)
  return times, mend, aged
end

-- Gives the ids of the reports from before first_day in these batches, oldest first.
local function aged_reports(aged, first_day)
  local at = 1
  return function()
    while aged[at] do
      local report = database.row("SELECT " .. wide("id, day") .. " FROM reports WHERE id BETWEEN %.0f AND %.0f "
        .. "ORDER BY reports.id LIMIT 1", aged[at].first_id, aged[at].last_id)
      if report and report.day < first_day then return report.id end
      at = at + 1
    end
  end
end

-- Counts the UTC days under which times were listed; a day counts when it is later than all counted before. A report
-- goes for its age when a sender had its id and more than "max_age_days" were counted since it came. So it was listed
-- in more passes than that, under as many later days; a clock that leaps or falls back adds none by itself.
-- Housekeeping waits while the disk is full, as listing does not depend on it.
local function list_times()
  local now, most, state = get_timestamp(), setting("max_age_days"), read_state()
  local first_day = most > 0 and state.listed_days - most or 0
  local times, mend, aged = survey(now, first_day)
  local day = math.floor(now / DAY)
  if day > state.latest_day then
    mend[#mend + 1] = function() account("latest_day = %.0f, listed_days = listed_days + 1", day) end
  end
  if #mend + #aged == 0 then
    if surplus() > 0 then transaction(function() end) end
    return times
  end
  local dropped
  local done, message = pcall(transaction, function()
    dropped = drop(aged_reports(aged, first_day), free_pages() + AGED_PAGES, "dropped_age")
    for at = 1, #mend do mend[at]() end
  end)
  if done then
    tell(dropped, "age")
    return (survey(now, first_day))
  end
  if not is_full(message) then error(message, 0) end
  pcall(database.execute, "ROLLBACK")
  return times
end

local function list_ids(time)
  local ranges, open_batches, ids, sorted = {}, 0, {}, true
  database.each(function(row)
    ranges[#ranges + 1] = string.format("%.0f AND %.0f", row.first_id, row.last_id)
    open_batches = open_batches + 1 - row.sealed
  end, "SELECT %s FROM batches WHERE %s ORDER BY batch", wide("first_id, last_id, sealed"), batches_of(time))
  if open_batches > 0 then
    transaction(function()
      database.execute("UPDATE batches SET sealed = 1 WHERE sealed = 0 AND " .. batches_of(time))
    end)
  end
  for at = 1, #ranges do
    database.values(function(id)
      sorted = sorted and id > (ids[#ids] or 0)
      ids[#ids + 1] = id
    end, "SELECT id + 0.0 FROM reports WHERE id BETWEEN %s ORDER BY id", ranges[at])
  end
  if not sorted then table.sort(ids) end
  return ids
end

-- A number as JSON, within bounds whatever a damaged row holds, as the agent could not count a larger one.
local function json_number(number, least, most)
  return whole(math.max(least, math.min(most, number or least)))
end

-- The report as JSON. Every value is a number, hexadecimal or Base64, so nothing needs quoting.
local function read_report(id)
  local row = database.row("SELECT " .. wide("module, type, aggregationid, count, size, first_time, last_time")
    .. ", lower(hex(sha256)) AS sha256, body, store FROM reports CROSS JOIN contents USING(id) "
    .. "CROSS JOIN accounts ON one = 1 WHERE reports.id = %.0f", id)
  if not row then return nil end
  local least = setting("check_hash_min_size")
  return table.concat({ '{"module":', json_number(row.module, -32768, 32767),
    ',"type":', json_number(row.type, -32768, 32767),
    ',"aggregationid":', json_number(row.aggregationid, 0, 2 ^ 32 - 1),
    ',"count":', json_number(row.count, 1, 2 ^ 31 - 1), ',"size":', json_number(row.size, 0, 2 ^ 53),
    ',"first_time":', json_number(row.first_time, -2 ^ 53, 2 ^ 53),
    ',"last_time":', json_number(row.last_time, -2 ^ 53, 2 ^ 53),
    ',"SHA256":"', row.sha256, '","uid":"', row.store, "-", whole(id), '"',
    least > 0 and row.size and row.size >= least and ',"check_hash":1' or "",
    row.first_time and row.first_time < FIRST_RELEASE and ',"clock":"untrusted"' or "",
    ',"encoding":"deflate+base64","content":"', (string.gsub(row.body, "[^A-Za-z0-9+/=]", "")), '"}' })
end

local function remove(id)
  return transaction(function() return delete_report(id, "removed") end)
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
  return serve(read_report, id) or error("unknown report id: " .. whole(id), 0)
end

function remove_report_by_id(id)
  return serve(remove, id)
end
