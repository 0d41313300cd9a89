-- Saves what can be read of a store that was set aside into the present one, for a technician's program.

-- Ids that one call tries one by one where a page is damaged.
local PROBES = 1000

local function read_of(other, sql, ...)
  local read, row = pcall(other.row, sql, ...)
  return read and row or nil
end

-- The next report, and what is told of the whole: all that can be read of it.
local function survey_aside(other)
  local accounts = read_of(other, "SELECT next_id + 0.0 AS next_id, "
    .. "saved - removed - dropped_space - dropped_age + 0.0 AS stored FROM accounts WHERE one = 1")
  local reports = read_of(other, "SELECT count(*) + 0.0 AS reports, max(id) + 0.0 AS last FROM reports")
  return { reports = reports and reports.reports, last = accounts and accounts.next_id or reports and reports.last,
    stored = accounts and accounts.stored }
end

-- The first report from an id on whose row can be read, or nil. Damage to a page hides the ids on it and stops a walk
-- over them, but not the way to others. The first id is far above zero; the batches tell it. Returns also where to go
-- on without one, nil at the end.
local function next_aside(other, from)
  local columns = "SELECT " .. wide("id, module, type, aggregationid, count, first_time, last_time") .. " FROM reports "
  local read, row = pcall(other.row, columns .. "WHERE id >= %.0f ORDER BY reports.id LIMIT 1", from)
  if read then return row end
  local last, oldest = survey_aside(other).last or 0, read_of(other, "SELECT min(first_id) + 0.0 AS id FROM batches")
  from = math.max(from, oldest and oldest.id or 0)
  for id = from, math.min(from + PROBES, last) do
    row = read_of(other, columns .. "WHERE id = %.0f", id)
    if row then return row end
  end
  return nil, from + PROBES < last and from + PROBES + 1 or nil
end

-- The content in the form in which it is stored, nil unless it is whole.
local function body_aside(other, id)
  local row = read_of(other, "SELECT lower(hex(sha256)) AS sha256, body || '' AS body FROM contents WHERE id = %.0f", id)
  if not row or not row.body or string.find(row.body, "[^A-Za-z0-9+/=]") then return nil end
  local content = inflate(base64_decode(row.body))
  return content and sha256(content) == row.sha256 and content, row.body
end

-- With its count and times, under a new id, by itself: nothing joins it and nothing is dropped for it.
local function restore(report, body)
  return transaction(function()
    local state, limit = read_state(), page_limit()
    if pages_for(#body) > limit - page_count() + free_pages() then
      error("no room below db_max_size without dropping reports", 0)
    end
    return insert_report(state, report, { time = dispatch_time(state, get_timestamp()), body = body,
      count = report.count, first_time = report.first_time, last_time = report.last_time })
  end)
end

local function step(other, asked)
  if other.number("PRAGMA application_id") ~= APPLICATION_ID then error("not a report store", 0) end
  local answer = asked.save and {} or survey_aside(other)
  local report, go_on = next_aside(other, asked.from)
  if not report then
    answer.go_on = go_on
    return answer
  end
  bound_row(report)
  answer.report = report
  if asked.save then report.content, answer.body = body_aside(other, report.id) end
  return answer
end

-- Takes and gives a JSON object. Of the file `path`, the first report from the id `from` on: `report`, with id, module,
-- type and count, and with `save` also `saved`, false when its content is not whole. Without a report `go_on` is where
-- to go on, absent at the end. Without `save` it tells `reports` and `stored` occurrences, as far as they can be read.
function recover(text)
  local asked = json.decode(text)
  local other = sqlite3.open(asked.path, BUSY_WAIT_MS)
  local read, answer = pcall(step, other, asked)
  other.close()
  if not read then error("nothing can be read of " .. asked.path .. ": " .. answer, 0) end
  local report = answer.report
  if report and asked.save then
    answer.saved = report.content and true or false
    if report.content then serve(restore, report, answer.body) end
    report.content, answer.body = nil, nil
  end
  return json.encode(answer)
end
