-- JSON for the storage script, on lua-cjson. It has an instance of its own, so that the settings below
-- change nothing for other users of the library in the same interpreter.

local json = require("cjson").new()

-- NaN, Infinity and hexadecimal numbers are no JSON.
json.decode_invalid_numbers(false)

return json
