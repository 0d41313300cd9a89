-- Saves what can be read of a store that was set aside into the present one, for a technician's program.

-- Ids that one call tries one by one where a page of each table is damaged.
local PROBES = 1000

local function read_of(other, sql, ...)
  local read, row = pcall(other.row, sql, ...)
  return read and row or nil
end

-- What is told of the whole: all that can be read of it.
local function survey_aside(other)
  local reports = read_of(other, "SELECT count(*) + 0.0 AS reports FROM reports") or {}
  local accounts = read_of(other, "SELECT saved - removed - dropped_space - dropped_age + 0.0 AS stored FROM accounts "
    .. "WHERE one = 1") or {}
  return { reports = reports.reports, stored = accounts.stored }
end

-- The first id from one on in a table, infinite at the end, nil where damage hides it.
local function first_id(other, name, from)
  local read, id = pcall(other.number, "SELECT id + 0.0 FROM %s WHERE id >= %.0f ORDER BY %s.id LIMIT 1", name, from,
    name)
  return read and (id or math.huge) or nil
end

-- The next id from one on in either table, infinite at the end, nil where damage hides it in both. The two have the
-- same ids on different pages, so one leads over what is hidden in the other.
local function next_of_either(other, from)
  local report, content = first_id(other, "reports", from), first_id(other, "contents", from)
  return report and content and math.min(report, content) or report or content
end

-- Likewise, past what is hidden in both: that is tried id by id, between bounds that the batches and the accounts tell.
-- Without an id, where to go on, nil at the end.
local function next_aside(other, from)
  local id = next_of_either(other, from)
  if id then return id end
  local bounds = read_of(other, "SELECT (SELECT min(first_id) FROM batches) + 0.0 AS least, next_id + 0.0 AS beyond "
    .. "FROM accounts WHERE one = 1 AND least + beyond NOT NULL")
  if not bounds then fail("it does not tell which ids there are behind " .. whole(from)) end
  local first = math.max(from + 1, bounds.least)
  local last = math.min(first + PROBES, bounds.beyond)
  for further = first, last do
    id = next_of_either(other, further)
    if id then return id end
  end
  return nil, last < bounds.beyond and last + 1 or nil
end

-- The content in the form in which it is stored, nil unless it is whole.
local function body_aside(other, id)
  local row = read_of(other, "SELECT lower(hex(sha256)) AS sha256, body || '' AS body FROM contents WHERE id = %.0f",
    id)
  if not row or not row.body or string.find(row.body, "[^A-Za-z0-9+/=]") then return nil end
  local content = inflate(base64_decode(row.body))
  return content and sha256(content) == row.sha256 and content or nil, row.body
end

-- With its count and times, under a new id, by itself: nothing joins it and nothing is dropped for it.
local function restore(report, body)
  return transaction(function()
    local state, limit = read_state(), page_limit()
    if pages_for(#body) > limit - page_count() + free_pages() then
      fail("no room below db_max_size without dropping reports")
    end
    return insert_report(state, report, { time = dispatch_time(state, get_timestamp()), body = body,
      count = report.count, first_time = report.first_time, last_time = report.last_time })
  end)
end

local function step(other, asked)
  if other.number("PRAGMA application_id") ~= APPLICATION_ID then fail("not a report store") end
  local answer = asked.save and {} or survey_aside(other)
  local id, go_on = next_aside(other, asked.from)
  answer.go_on = go_on
  if not id or id == math.huge then return answer end
  local row = read_of(other, "SELECT " .. wide("module, type, aggregationid, count, first_time, last_time")
    .. " FROM reports WHERE id = %.0f", id)
  if row then bound_row(row) end
  answer.report = row or {}
  answer.report.id = id
  if row and asked.save then row.content, answer.body = body_aside(other, id) end
  return answer
end

-- Takes and gives a JSON object. Of the file `path`, the first report from the id `from` on: `report`, with id and, where
-- they can be read, module, type and count, and with `save` also `saved`, false when it is not whole. Without a report
-- `go_on` is where to go on, absent at the end. Without `save` it tells `reports` and `stored` occurrences, as far as
-- they can be read.
function recover(text)
  local asked = json.decode(text)
  local other = sqlite3.open(asked.path, BUSY_WAIT_MS)
  local read, answer = pcall(step, other, asked)
  other.close()
  if not read then fail("nothing more can be read of " .. asked.path .. ": " .. answer) end
  local report = answer.report
  if report and asked.save then
    answer.saved = report.content ~= nil
    if report.content then serve(restore, report, answer.body) end
    report.content, answer.body = nil, nil
  end
  return json.encode(answer)
end
