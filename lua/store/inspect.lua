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
    size = page_count() * PAGE_SIZE, free = free_pages() * PAGE_SIZE, limit = page_limit() * PAGE_SIZE }
  if database.number("PRAGMA application_id") ~= APPLICATION_ID then
    error(FOREIGN .. "another application's", 0)
  elseif answer.version ~= #VERSIONS then
    return answer
  end
  check_columns()
  answer.accounts = database.row("SELECT " .. wide("saved, joined, removed, dropped_space, dropped_age, refused, "
    .. "set_aside") .. " FROM accounts WHERE one = 1")
  answer.stored = database.number("SELECT total(count) FROM reports")
  answer.reports = database.number("SELECT count(*) FROM reports")
  answer.newest = database.number("SELECT last_time + 0.0 FROM reports ORDER BY id DESC LIMIT 1")
  answer.times = survey_times()
  return answer
end

local QUESTIONS = {
  store = describe,
  check = function() return { check = database.row("PRAGMA quick_check(1)").quick_check } end,
}

-- A JSON object: "store" describes the store, "check" has SQLite look for damage. With `error` when it cannot be
-- told, and `foreign` or `damaged` where the next call of another function would set the store aside. To be
-- called under the agent's lock, and not while the database has an unfinished write, which opening it ends.
function inspect(question)
  local done, answer = pcall(function()
    if not exists(PATH_TO_DB) then error("there is no store", 0) end
    database = sqlite3.open(PATH_TO_DB, BUSY_WAIT_MS)
    database.row("PRAGMA query_only = ON")
    return QUESTIONS[question]()
  end)
  close()
  if not done then answer = { error = answer, foreign = is_foreign(answer), damaged = is_damage(answer) } end
  return json.encode(answer)
end
