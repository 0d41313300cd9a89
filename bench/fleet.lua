-- A fleet over one night, run behind the storage script, whose schedule it calls. Prints lines for bench/fleet.sh:
--   rate SCENARIO SPREAD MINUTE REQUESTS    requests of that minute after 18:00; minutes without any are left out
--   peak SCENARIO SPREAD REQUESTS SENT WAITED    most in a minute; all requests; hours until the last device had sent
-- A request is a connection with its handshake. All times are UTC, in seconds after 18:00.

local DEVICES, HOUR, PASS = 100000, 3600, 600
local EVENING = 1800014400 + 6 * HOUR -- 18:00 of some day
local AWAY_FROM, AWAY_TO = 9 * HOUR, 11 * HOUR -- the server, from 03:00 to 05:00
local CUT_FROM, CUT_TO = 8 * HOUR, 9.5 * HOUR -- the power of a region, from 02:00 to 03:30
local REGION = 0.2 -- the share of devices in it
local ASLEEP = 0.3 -- the share of devices that are off from midnight to some time from 06:00 to 10:00
local BOOT, CLOCK = 120, 60 -- devices start within so many seconds of power; the clock is right so many later

DISPATCHING_TIME = "03:00"
math.randomseed(1)

local function make_device(number)
  local device = { name = string.format("DEVICE%08d", number), phase = math.random() * PASS,
    region = math.random() < REGION, boot = math.random() * BOOT }
  if math.random() < ASLEEP then device.wake = (12 + 4 * math.random()) * HOUR end
  return device
end

-- Seconds after 18:00 at which the script has a report of that evening sent.
local function due(device, spread)
  DUID, schedule, settings = device.name, nil, { dispatching_spread = spread }
  return next_dispatch_time(EVENING + 3 * HOUR) - EVENING
end

-- The first pass at or after a moment at which the device is on and knows the time. A pass comes at the start of the
-- device and every ten minutes from then on.
local function next_pass(device, moment, cut)
  local start, is_on = device.phase - PASS, true
  if cut and device.region and moment >= CUT_FROM then
    start = CUT_TO + device.boot
    moment = math.max(moment, start + CLOCK)
  end
  if device.wake and moment >= 6 * HOUR and moment < device.wake then moment, start = device.wake, device.wake end
  return start + math.ceil((moment - start) / PASS) * PASS
end

local function simulate(scenario, spread, devices, dues)
  local minutes, sent, last = {}, 0, 0
  for at = 1, #devices do
    local moment = next_pass(devices[at], dues[at], scenario == "cut")
    local taken
    repeat
      taken = scenario ~= "away" or moment < AWAY_FROM or moment >= AWAY_TO
      local minute = math.floor(moment / 60)
      minutes[minute], sent = (minutes[minute] or 0) + 1, sent + 1
      if not taken then moment = next_pass(devices[at], moment + 1, false) end
    until taken
    last = math.max(last, moment)
  end
  local most = 0
  for _, requests in pairs(minutes) do most = math.max(most, requests) end
  for minute = 0, last / 60 do
    if minutes[minute] then print("rate", scenario, spread, minute, minutes[minute]) end
  end
  print("peak", scenario, spread, most, sent, string.format("%.2f", last / HOUR))
end

local devices = {}
for number = 1, FLEET or DEVICES do devices[number] = make_device(number) end
for _, spread in pairs({ 0, 600, 3600, 14400 }) do
  local dues = {}
  for at = 1, #devices do dues[at] = due(devices[at], spread) end
  for _, scenario in pairs({ "usual", "away", "cut" }) do simulate(scenario, spread, devices, dues) end
end
