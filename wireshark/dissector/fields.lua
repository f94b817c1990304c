-- The protocol and its fields as the analyser knows them: one for each name, wherever it stands.

local zondar = Proto("zondar", "Zondar")

local SWITCH = {[0] = "off", [1] = "on"}
local STATUS = {[0] = "bad", [1] = "good"}

local fields = {}

local function number_field(abbreviation, name, entry)
    local make = ({ProtoField.uint8, ProtoField.uint16, ProtoField.uint24, ProtoField.uint32})[entry.width]
    local values = entry.values or entry.kind == "switch" and SWITCH or nil
    if entry.unit then
        return make(abbreviation, name, base.UNIT_STRING, {" " .. entry.unit}, nil, entry.meaning)
    end
    return make(abbreviation, name, base.DEC, values, nil, entry.meaning)
end

local function field_for(abbreviation, name, entry)
    if entry.text or entry.kind == "version" then
        return ProtoField.string(abbreviation, name, base.NONE, entry.meaning)
    elseif entry.kind == "sign and magnitude" then
        return ProtoField.int32(abbreviation, name, base.DEC, nil, nil, entry.meaning)
    elseif entry.kind == "bit" then
        return ProtoField.bool(abbreviation, name, base.NONE, {"on", "off"}, 0, entry.meaning)
    elseif entry.kind == "true if zero" then
        return ProtoField.bool(abbreviation, name, base.NONE, {"yes", "no"}, 0, entry.meaning)
    end
    return number_field(abbreviation, name, entry)
end

local function add_field(name, entry)
    if not fields[name] then
        fields[name] = field_for("zondar." .. name:lower(), name, entry)
    end
end

-- Whether a value of that kind says something.
local function has_value(entry)
    return entry.name and entry.kind ~= "value" and entry.kind ~= "sub-command"
end

-- Of commands or sub-commands, by their codes.
local function names_of(rows)
    local names = {}
    for code, row in pairs(rows) do
        names[code] = row.name or row.parameter or row.action
    end
    return names
end

-- The keys of a table, sorted: where several layouts have a name, the same one's words are always taken.
local function in_order(all)
    local keys = {}
    for key in pairs(all) do
        keys[#keys + 1] = key
    end
    table.sort(keys)
    return keys
end

-- What stands in every frame, and what is found out about it.
fields.control = ProtoField.uint8("zondar.control", "Control", base.HEX)
fields.crc8_mode = ProtoField.bool("zondar.crc8_mode", "CRC8 mode", 8, {"on", "off"}, 0x80)
fields.sequence = ProtoField.uint8("zondar.sequence", "Sequence", base.DEC, nil, 0x70)
fields.command = ProtoField.uint8("zondar.command", "Command", base.DEC, names_of(COMMANDS), 0x0F)
fields.header = ProtoField.bytes("zondar.header", "Header")
fields.length = ProtoField.uint8("zondar.length", "Length of the info")
fields.info = ProtoField.bytes("zondar.info", "Info")
fields.sub_command = ProtoField.uint8("zondar.sub_command", "Sub-command", base.DEC, names_of(SUB_COMMANDS))
fields.checksum = ProtoField.uint8("zondar.checksum", "Checksum", base.HEX)
fields.checksum_status = ProtoField.uint8("zondar.checksum.status", "Checksum status", base.DEC, STATUS)
fields.crc = ProtoField.uint8("zondar.crc", "CRC", base.HEX)
fields.crc_status = ProtoField.uint8("zondar.crc.status", "CRC status", base.DEC, STATUS)
fields.doubled = ProtoField.uint16("zondar.doubled", "Doubled bytes")
fields.skipped = ProtoField.bytes("zondar.skipped", "Bytes outside of frames")
fields.unfinished = ProtoField.bytes("zondar.unfinished", "Frame, to be continued")
fields.broken_off = ProtoField.bytes("zondar.broken_off", "Frame that breaks off")
fields.request = ProtoField.bool("zondar.request", "Request")
fields.answer = ProtoField.bool("zondar.answer", "Answer")
fields.request_in = ProtoField.framenum("zondar.request_in", "Request in", base.NONE, frametype.REQUEST)
fields.answer_in = ProtoField.framenum("zondar.answer_in", "Answer in", base.NONE, frametype.RESPONSE)
fields.response_time = ProtoField.relative_time("zondar.response_time", "Response time")
fields.no_answer = ProtoField.string("zondar.no_answer", "No answer")
fields.no_answer_in = ProtoField.framenum("zondar.no_answer_in", "That shows in")
fields.written_in = ProtoField.framenum("zondar.written_in", "Written in")
fields.began_in = ProtoField.framenum("zondar.began_in", "Began in")
fields.empty_connections = ProtoField.uint32("zondar.empty_connections", "Empty connections in a row")

for name, parameter in pairs(PARAMETERS) do
    add_field(name, parameter)
end
for _, name in ipairs(in_order(LAYOUTS)) do
    for _, entry in ipairs(LAYOUTS[name]) do
        if has_value(entry) then
            add_field(entry.name, entry)
        end
    end
end
zondar.fields = fields

local SEVERITIES = {note = expert.severity.NOTE, warn = expert.severity.WARN, error = expert.severity.ERROR}

local experts, texts_of_findings = {}, {}
for _, finding in ipairs(FINDINGS) do
    experts[finding.id] = ProtoExpert.new("zondar." .. finding.id, finding.text, expert.group.PROTOCOL,
                                          SEVERITIES[finding.severity])
    texts_of_findings[finding.id] = finding.text
end
zondar.experts = experts
