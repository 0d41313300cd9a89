-- A look at the store for a technician's programs, which changes nothing: no seal, no drop, no repair, and a
-- store that is damaged or foreign stays where it is.

local function survey_times()
  local times = {}
  database.each(function(row)
    times[#times + 1] = { time = time_of(row.batch), sealed = row.sealed == 1, reports = row.reports,
      occurrences = row.occurrences }
  end, "SELECT " .. wide("batch, sealed, reports, occurrences") .. " FROM (SELECT batch, sealed, "
    .. "(SELECT count(*) FROM reports WHERE id BETWEEN first_id AND last_id) AS reports, "
    .. "(SELECT total(count) FROM reports WHERE id BETWEEN first_id AND last_id) AS occurrences "
    .. "FROM batches WHERE batch >= " .. whole(BATCH_BASE) .. " ORDER BY batches.batch)")
  return times
end

local function describe()
  local answer = { version = database.number("PRAGMA user_version"), newest_version = #VERSIONS,
    size = page_count() * PAGE_SIZE, free = free_pages() * PAGE_SIZE,
    limit = page_limit() < NO_LIMIT and page_limit() * PAGE_SIZE or 0 }
  if database.number("PRAGMA application_id") ~= APPLICATION_ID then
    fail("not a report store")
  elseif answer.version ~= #VERSIONS then
    return answer
  end
  answer.accounts = database.row("SELECT " .. wide("saved, joined, removed, dropped_space, dropped_age, refused, "
    .. "set_aside") .. " FROM accounts WHERE one = 1")
  answer.stored = database.number("SELECT total(count) FROM reports")
  answer.reports = database.number("SELECT count(*) FROM reports")
  answer.newest = database.number("SELECT last_time + 0.0 FROM reports ORDER BY id DESC LIMIT 1")
  answer.times = survey_times()
  return answer
end

-- How much of the store one answer shows at most, as the lock is held meanwhile: reports, and bytes of their texts.
local LISTED_REPORTS, READ_BYTES = 1000, 1048576

-- Reports in the order of their batches and ids, from behind the place that the answer before named.
local function list_reports(place)
  recognise()
  local batch, id = string.match(place, "^(%d+) (%d+)$")
  batch, id = tonumber(batch) or BATCH_BASE, tonumber(id) or 0
  local reports, last = {}, nil
  database.each(function(row)
    last = whole(row.batch) .. " " .. whole(row.id)
    row.time, row.sealed, row.batch = time_of(row.batch), row.sealed == 1, nil
    reports[#reports + 1] = row
  end, "SELECT " .. wide("batch, sealed, id, module, type, aggregationid, count, size, first_time, last_time")
    .. " FROM batches CROSS JOIN reports ON id BETWEEN first_id AND last_id CROSS JOIN contents USING(id) "
    .. "WHERE batches.batch >= %.0f AND (batches.batch > %.0f OR reports.id > %.0f) "
    .. "ORDER BY batches.batch, reports.id LIMIT %d", batch, batch, id, LISTED_REPORTS)
  return { reports = reports, place = #reports == LISTED_REPORTS and last or nil }
end

-- What the agent is given for these ids, or as many of them as fit; false for an unknown one.
local function read_reports(ids)
  recognise()
  local texts, bytes = {}, 0
  for id in string.gmatch(ids, "%d+") do
    if bytes >= READ_BYTES then break end
    local text = read_report(tonumber(id))
    texts[#texts + 1], bytes = text or false, bytes + #(text or "")
  end
  return { texts = texts }
end

-- From here on statements change pages in memory only: nothing is committed, and closing rolls back. After a failure,
-- by which SQLite may have rolled back by itself, none is run.
local function rehearse()
  database.row("PRAGMA query_only = OFF")
  database.row("PRAGMA journal_mode = MEMORY")
  database.row("PRAGMA cache_spill = OFF")
  local execute = database.execute
  execute("BEGIN IMMEDIATE")
  function database.execute(sql, ...)
    if sql == "BEGIN IMMEDIATE" or sql == "COMMIT" or string.find(sql, "incremental_vacuum", 1, true) then return 0 end
    local done, result = pcall(execute, sql, ...)
    if done then return result end
    execute = function() fail(result) end
    execute()
  end
  WARN = function() end
end

local function count_reports()
  return database.row("SELECT count(*) AS reports, total(count) AS occurrences FROM reports")
end

-- What a pass that began now would be given.
local function plan()
  recognise()
  rehearse()
  local now, before = get_timestamp(), count_reports()
  local times, due, later = list_times(), {}, {}
  local after = count_reports()
  for at = 1, #times do
    if times[at] > now then
      later[#later + 1] = times[at]
    else
      due[#due + 1] = { time = times[at], ids = list_ids(times[at]) }
    end
  end
  return { due = due, later = later, dropped_reports = before.reports - after.reports,
    dropped_occurrences = before.occurrences - after.occurrences }
end

local QUESTIONS = {
  store = describe,
  check = function() return { check = database.row("PRAGMA quick_check(1)").quick_check } end,
  list = list_reports,
  read = read_reports,
  plan = plan,
}

-- A JSON object: the answer to a question, a word and what it is about (docs/storage_script.md). With `error` when it
-- cannot be told, and `foreign` or `damaged` where the next call of another function would set the store aside. To be
-- called under the agent's lock, and not while the database has an unfinished write, which opening it ends.
function inspect(question)
  local done, answer = pcall(function()
    if get_db_size() < 0 then fail("there is no store") end
    database = sqlite3.open(PATH_TO_DB, BUSY_WAIT_MS)
    database.row("PRAGMA query_only = ON")
    local word, about = string.match(question, "^(%a+) ?(.*)$")
    return QUESTIONS[word](about)
  end)
  close()
  if not done then answer = { error = answer, foreign = means(answer, FOREIGN), damaged = means(answer, DAMAGE) } end
  return json.encode(answer)
end
