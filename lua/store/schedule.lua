-- When a report is due.

-- "HH:MM,HH:MM,..." as a list of hours and minutes, or nil.
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

-- DISPATCHING_TIME as a period in seconds (0: at once) or a list of local times, and the device's offset.
local function read_schedule()
  if schedule then return schedule end
  local spread = setting("dispatching_spread")
  local period = string.find(DISPATCHING_TIME, "^%d+$") and tonumber(DISPATCHING_TIME)
  schedule = { period = period and period < 2147483648 and period,
    times = clock_times(DISPATCHING_TIME),
    offset = spread > 0 and tonumber(string.sub(sha256(DUID or ""), 1, 8), 16) % spread or 0 }
  if not schedule.period and not schedule.times then
    ERROR("bad dispatching time, 03:00 is used instead: " .. DISPATCHING_TIME)
    schedule.times = { { hour = 3, min = 0 } }
  end
  return schedule
end

-- The first of the local times after a moment, or the moment itself where the calendar of a 32-bit system ends.
-- os.time carries days over the end of a month, and moves a time that daylight saving skips. As this may bring it
-- before the moment, a third day is looked at.
local function next_clock_time(times, moment)
  local today, best = os.date("*t", moment), nil
  for days = 0, 2 do
    for at = 1, #times do
      local time = os.time({ year = today.year, month = today.month, day = today.day + days,
        hour = times[at].hour, min = times[at].min, sec = 0 })
      if time and time > moment then best = math.min(time, best or time) end
    end
  end
  return best or moment
end

-- When a report that comes now is due: at once, or at the schedule's next time.
local function next_dispatch_time(now)
  local plan = read_schedule()
  local moment = now - plan.offset
  local time = now
  if not plan.period then
    time = next_clock_time(plan.times, moment) + plan.offset
  elseif plan.period > 0 then
    time = moment - moment % plan.period + plan.period + plan.offset
  end
  return math.max(0, math.min(time, LATEST_TIME))
end
