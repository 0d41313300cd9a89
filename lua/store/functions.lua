-- The six functions that the agent calls.

-- Pages that one listing frees at most by dropping reports for their age; it gives back as many.
local AGED_PAGES = SHRINK_ROUNDS * SHRINK_STEP

-- Pages that a body of so many bytes adds at most: its own, with their share of a pointer map, and those of a split in
-- each tree that gains a row.
local BYTES_ON_PAGE, SPLIT_PAGES = PAGE_SIZE - 16, 21

local function pages_for(length)
  return math.ceil(length / BYTES_ON_PAGE) + SPLIT_PAGES
end

local OLDEST = "SELECT id + 0.0 AS id, id + 0.0 AS place FROM reports WHERE id >= %.0f ORDER BY reports.id LIMIT 1"

-- Drops the oldest reports until `need` pages fit within the bound; returns what went. A file above its bound also
-- loses what the call gives back, but no more. Nil when the pages would not fit an empty store.
local function make_room(need)
  local limit = page_limit()
  if limit == LEAST_LIMIT and unsigned(DB_MAX_SIZE) < LEAST_LIMIT * PAGE_SIZE then
    WARN("db_max_size is too small, taken as " .. LEAST_LIMIT * PAGE_SIZE)
  end
  if need > limit - EMPTY_PAGES then return nil end
  local wanted = need + math.min(page_count() - limit, SHRINK_ROUNDS * SHRINK_STEP)
  return drop(OLDEST, wanted, "dropped_space")
end

local function insert_report(state, report, new)
  local id, batch = state.next_id, batch_for(state, new.time)
  database.execute("INSERT INTO reports(id, module, type, aggregationid, count, first_time, last_time, day, like_key, "
    .. "file_key) VALUES(%.0f, %d, %d, %.0f, %.0f, %.0f, %.0f, %.0f, %s, %s)", id, report.module, report.type,
    report.aggregationid, new.count, new.first_time, new.last_time, state.listed_days, new.like_key or "NULL",
    new.file_key or "NULL")
  database.execute("INSERT INTO contents(id, size, sha256, body) VALUES(%.0f, %d, x'%s', '%s')", id, #report.content,
    sha256(report.content), new.body)
  for _, key in pairs({ like = new.like_key, file = new.file_key }) do
    database.execute("REPLACE INTO alike(key, id, batch) VALUES(%s, %.0f, %.0f)", key, id, batch)
  end
  account("saved = saved + %.0f, next_id = %.0f", new.count, id + 1)
  return id
end

local function store_report(report)
  local dropped
  local id = transaction(function()
    local state, now = read_state(), get_timestamp()
    local new = { time = dispatch_time(state, now), count = 1, first_time = now, last_time = now }
    new.like_key = like_key(report, new.time)
    local like = new.like_key and find_alike(new.like_key)
    if like then
      join(like.id, now)
      return like.id
    end
    new.body = base64_encode(deflate(report.content))
    new.file_key = file_key_of(report.content)
    dropped = make_room(pages_for(#new.body))
    if dropped then return insert_report(state, report, new) end
    account("refused = refused + 1")
    return 0
  end)
  if id == 0 then WARN("report refused, too large for the store: " .. #report.content .. " bytes") end
  tell(dropped, "space")
  return id
end

local function count_again(key)
  return transaction(function()
    local like = find_alike(key)
    if not like then return 0 end
    join(like.id, get_timestamp())
    return like.count + 1
  end)
end

-- All batches, each with whether it has a report, which takes one seek.
local SURVEY = "SELECT batch + 0.0 AS batch, (SELECT 1 FROM reports WHERE id BETWEEN first_id AND last_id LIMIT 1) "
  .. "AS used FROM batches WHERE batch >= " .. whole(BATCH_BASE) .. " ORDER BY batches.batch"

-- Returns the dispatch times of stored reports, and statements that mend batches. A time beyond what the schedule can
-- give comes from a clock that was ahead. Once the clock is set, its batch moves to the next regular time, and its
-- range of ids ends here.
local function survey(now)
  local latest, times, mend = next_dispatch_time(now), {}, {}
  database.each(function(row)
    local time = time_of(row.batch)
    if not row.used then
      mend[#mend + 1] = "DELETE FROM batches WHERE batch = " .. whole(row.batch)
      return
    end
    if time > latest and now >= FIRST_RELEASE then
      mend[#mend + 1] = "UPDATE batches SET batch = " .. next_batch(latest) .. ", last_id = min(last_id, "
        .. "(SELECT next_id - 1 FROM accounts WHERE one = 1)) WHERE batch = " .. whole(row.batch)
    end
    if times[#times] ~= time then times[#times + 1] = time end
  end, SURVEY)
  return times, mend
end

-- The first report that a sender had and that came before a day. Reports of a batch came in the order of their ids, so
-- one seek in each is enough.
local function aged_before(day)
  return "SELECT reports.id + 0.0 AS id, batch + 0.0 AS place FROM batches CROSS JOIN reports ON reports.id = "
    .. "(SELECT id FROM reports WHERE id BETWEEN first_id AND last_id ORDER BY id LIMIT 1) AND day < " .. whole(day)
    .. " WHERE batches.batch >= %.0f AND sealed = 1 ORDER BY batches.batch LIMIT 1"
end

-- Counts the UTC days under which times were listed; a day counts when it is later than all counted before. A report
-- goes for its age when a sender had its id and more than "max_age_days" were counted since it came. So it was listed
-- in more passes than that, under as many later days; a clock that leaps or falls back adds none by itself.
-- Housekeeping waits while the disk is full, as listing does not depend on it.
local function list_times()
  local now, most, state = get_timestamp(), setting("max_age_days"), read_state()
  local day, times, mend = math.floor(now / DAY), survey(now)
  local aged = aged_before(most > 0 and state.listed_days - most or 0)
  if #mend == 0 and day <= state.latest_day and not database.row(aged, 1) then
    shrink()
    return times
  end
  local dropped
  local done, message = pcall(transaction, function()
    dropped = drop(aged, free_pages() + AGED_PAGES, "dropped_age")
    for at = 1, #mend do database.execute(mend[at]) end
    if day > state.latest_day then account("latest_day = %.0f, listed_days = listed_days + 1", day) end
  end)
  if done then
    tell(dropped, "age")
    return (survey(now))
  end
  if not means(message, FULL) then fail(message) end
  pcall(database.execute, "ROLLBACK")
  return times
end

-- The order of batches is that of ids, but for those that were moved.
local function list_ids(time)
  local ids, sorted = {}, true
  database.execute("UPDATE batches SET sealed = 1 WHERE sealed = 0 AND " .. batches_of(time))
  database.values(function(id)
    sorted = sorted and id > (ids[#ids] or 0)
    ids[#ids + 1] = id
  end, "SELECT reports.id + 0.0 FROM batches CROSS JOIN reports ON reports.id BETWEEN first_id AND last_id "
    .. "WHERE %s ORDER BY batches.batch, reports.id", batches_of(time))
  if not sorted then table.sort(ids) end
  return ids
end

-- The text without what a damaged row may have beside Base64. To look first takes a fraction of the time.
local function base64_only(text)
  return string.find(text, "^[%w+/=]*$") and text or string.gsub(text, "[^%w+/=]", "")
end

-- The report as JSON. Every value is a number, hexadecimal or Base64, so nothing needs quoting.
local function read_report(id)
  local row = database.row("SELECT " .. wide("module, type, aggregationid, count, size, first_time, last_time")
    .. ", hash, body, store FROM reports CROSS JOIN (SELECT id AS content, size, lower(hex(sha256)) AS hash, body "
    .. "FROM contents) ON content = id CROSS JOIN (SELECT store FROM accounts WHERE one = 1) WHERE id = %.0f", id)
  if not row then return nil end
  bound_row(row)
  local size, least = bounded(row.size, 0, 2 ^ 53), setting("check_hash_min_size")
  return string.format('{"module":%.0f,"type":%.0f,"aggregationid":%.0f,"count":%.0f,"size":%.0f,"first_time":%.0f,'
    .. '"last_time":%.0f,"SHA256":"%s","uid":"%s-%.0f"%s%s,"encoding":"deflate+base64","content":"%s"}',
    row.module, row.type, row.aggregationid, row.count, size, row.first_time, row.last_time, row.hash, row.store, id,
    least > 0 and size >= least and ',"check_hash":1' or "",
    row.first_time < FIRST_RELEASE and ',"clock":"untrusted"' or "", base64_only(row.body))
end

local function remove(id)
  return transaction(function() return delete_report(id, "removed") end)
end

function save_report(report)
  report.aggregationid = unsigned(report.aggregationid)
  local stored, result = pcall(serve, store_report, report)
  if stored then return result end
  if not means(result, FULL) then fail(result) end
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
  return serve(read_report, id) or fail("unknown report id: " .. whole(id))
end

function remove_report_by_id(id)
  return serve(remove, id)
end
