-- The report store: one SQLite database behind the six functions at the end, which the agent calls
-- (docs/storage_script.md). Loading this text does nothing, as the interpreter is rebuilt several times per pass. The
-- first call opens the database, which stays open while the interpreter lives. Every call comes under an
-- inter-process lock of the agent. SQLite's own locks matter only against other programs, such as a technician's
-- shell.
--
-- The build joins the files of lua/store/ in the order that lua/CMakeLists.txt gives. This one has numbers and
-- settings, which all of them need.

local DAY = 86400

-- 2026-10-01 in seconds since 1970, the first release. A clock that shows less was never set. Never to be raised.
local FIRST_RELEASE = 1790812800

-- Ends a call with a message for people, as it stands: without a place in this text before it.
local function fail(message)
  error(message, 0)
end

-- Widens again what the agent narrowed: the device's Lua integers have 32 bits with a sign.
local function unsigned(number)
  return number < 0 and number + 4294967296 or number
end

local function whole(number)
  return string.format("%.0f", number)
end

-- Columns as floats, so that they come in full width: exact up to 2^53. A query must then order by table.column, since a
-- column alone means the float, for which there is no key.
local function wide(names)
  return (string.gsub(names, "[%w_]+", "%0 + 0.0 AS %0"))
end

local function exists(path)
  return (os.rename(path, path)) ~= nil
end

-- CONFIG has the comments of its file, which are no JSON. First quotes and backslashes within strings are written as
-- numbers; then every string ends at the next quote.
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

-- A number of CONFIG's "processor" object, 0 when it is absent, not positive or infinite. An infinite one would stand
-- in SQL as the name of a column, and a column that is missing tells a foreign store.
local function setting(name)
  if not settings then
    local read, root = pcall(json.decode, strip_comments(CONFIG))
    settings = read and type(root) == "table" and type(root.processor) == "table" and root.processor or {}
  end
  local value = settings[name]
  return type(value) == "number" and value > 0 and value < math.huge and math.floor(value) or 0
end
