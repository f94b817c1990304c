-- What bytes of an info say, as kinds have it. Knows nothing of the analyser.

local function text_of(bytes)
    return bytes:match("^[^\0]*")
end

local function number_of(bytes)
    local number = 0
    for at = 1, #bytes do
        number = number * 256 + bytes:byte(at)
    end
    return number
end

-- Texts are bytes in any encoding: what is no UTF-8, and what no screen shows, becomes \xNN.
local function shown(value)
    if type(value) == "number" then
        return string.format("%d", value)
    end
    local text, at = {}, 1
    while at <= #value do
        local character = value:match("^[\32-\126]+", at) or value:match("^[\xC2-\xDF][\x80-\xBF]", at) or
                              value:match("^[\xE0-\xEF][\x80-\xBF][\x80-\xBF]", at) or
                              value:match("^[\xF0-\xF4][\x80-\xBF][\x80-\xBF][\x80-\xBF]", at)
        text[#text + 1] = character or string.format("\\x%02X", value:byte(at))
        at = at + (character and #character or 1)
    end
    return table.concat(text)
end

-- Which block of the configuration it is, or asks for.
local function block_of(info)
    return info:byte(1) == 2 and 2 or 1
end

local function version(bytes)
    return table.concat({bytes:byte(1, -1)}, ".")
end
