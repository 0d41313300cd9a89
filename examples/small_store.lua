-- The smallest storage script that loses no report. Each report is one row of an SQLite table, from the save
-- until the removal. Everything is due at once, nothing is counted together, and there is no size limit.
-- docs/storage_script.md says what each function has to do.

local database

-- Loading the script does nothing: the interpreter is rebuilt several times per pass.
local function open()
  if database then return end
  database = sqlite3.open(PATH_TO_DB, 2000)
  -- With AUTOINCREMENT an id is never used again, not even that of the newest report after its removal.
  database.execute("CREATE TABLE IF NOT EXISTS reports(id INTEGER PRIMARY KEY AUTOINCREMENT, json TEXT)")
end

-- What goes to the server. It is made once, so that a report is the same whenever it is sent, `uid` included.
-- All foreign bytes stand in it as digits or Base64, so nothing needs quoting in JSON or in SQL.
local function as_json(report)
  local now = get_timestamp()
  return json.encode({
    module = report.module,
    type = report.type,
    aggregationid = report.aggregationid % 4294967296,  -- beyond 31 bits it arrives negative on the device
    count = 1,
    size = #report.content,
    SHA256 = sha256(report.content),
    encoding = "deflate+base64",
    content = base64_encode(deflate(report.content)),
    first_time = now,
    last_time = now,
    uid = database.row("SELECT lower(hex(randomblob(16))) AS uid").uid,
  })
end

function save_report(report)
  open()
  database.execute("INSERT INTO reports(json) VALUES('%s')", as_json(report))
  return database.number("SELECT last_insert_rowid()")
end

function ext_aggregation() return 0 end

-- All reports are of one time, which is always due.
function get_all_dispatch_times() return { 0 } end

function get_ids_by_dispatch_time()
  local ids = {}
  open()
  database.values(function(id) ids[#ids + 1] = id end, "SELECT id FROM reports ORDER BY id")
  return ids
end

function get_report_as_json_by_id(id)
  open()
  local row = database.row("SELECT json FROM reports WHERE id = %d", id)
  return row and row.json or error("unknown report id: " .. id, 0)
end

function remove_report_by_id(id)
  open()
  return database.execute("DELETE FROM reports WHERE id = %d", id)
end
