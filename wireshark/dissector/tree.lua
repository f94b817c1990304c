-- What a frame says: in a line, and as a tree.

-- What the bytes of an entry of a layout say, for a line of text.
local function value_in(entry, bytes)
    if entry.text then
        return shown(text_of(bytes))
    elseif entry.kind == "version" then
        return version(bytes)
    end
    return shown(number_of(bytes))
end

local function text_of_action(row, info)
    local values = {}
    for _, entry in ipairs(LAYOUTS[row.request]) do
        if has_value(entry) and entry.at + entry.width <= #info then
            local bytes = info:sub(entry.at + 1, entry.at + entry.width)
            values[#values + 1] = entry.name .. " " .. value_in(entry, bytes)
        end
    end
    return row.action .. (#values > 0 and ": " .. table.concat(values, ", ") or "")
end

local function text_of_write(info)
    if #info == 0 then
        return "write without a sub-command"
    end
    local row = SUB_COMMANDS[info:byte(1)]
    if not row then
        return string.format("write, unknown sub-command %d", info:byte(1))
    elseif row.action then
        return text_of_action(row, info)
    end
    local parameter, value = PARAMETERS[row.parameter], info:sub(2)
    if parameter.text then
        return "write " .. row.parameter .. " = " .. shown(text_of(value))
    elseif #value < row.width then
        return "write " .. row.parameter .. ", cut short"
    end
    return "write " .. row.parameter .. " = " .. shown(number_of(value:sub(1, row.width))) ..
               (parameter.unit and " " .. parameter.unit or "")
end

local function text_of_request(frame)
    local command = COMMANDS[frame.command]
    if not command then
        return string.format("command %d", frame.command)
    elseif frame.command == WRITE then
        return text_of_write(frame.info)
    elseif frame.command == CONFIGURATION then
        return #frame.info == 1 and "configuration " .. block_of(frame.info) or
                   "configuration, request of a wrong length"
    end
    return command.name
end

local function text_of_written(frame, request)
    local row = SUB_COMMANDS[(request or frame).info:byte(1)]
    local name = row and (row.action or "write " .. row.parameter) or "write"
    return name .. (is_refusal(frame) and ", refused" or "")
end

-- An empty answer says what it is about by its request alone.
local function text_of_answer(frame, request)
    local command = COMMANDS[frame.command]
    if not command then
        return string.format("answer: command %d", frame.command)
    elseif frame.command == WRITE then
        return "answer: " .. text_of_written(frame, request)
    elseif frame.command == CONFIGURATION then
        return "answer: " .. (#frame.info > 0 and "configuration " .. block_of(frame.info) or "no configuration")
    end
    return "answer: " .. command.name
end

-- What is wrong in a word or two.
local function remarks(note)
    local text = ""
    for _, finding in ipairs(note.findings) do
        text = text .. " [" .. finding.id:gsub("_", " "):gsub("crc", "CRC"):gsub("a5", "A5") .. "]"
    end
    return text
end

local function text_of_frame(frame, note, is_request)
    if not frame.codes_are_right then
        return (is_request and "request" or "answer") .. ", damaged"
    end
    return is_request and text_of_request(frame) or text_of_answer(frame, note.request)
end

-- The tree ----------------------------------------------------------------------------------------

local function add_finding(item, finding)
    local text = texts_of_findings[finding.id]
    if finding.detail then
        text = text .. ": " .. finding.detail
    end
    item:add_proto_expert_info(experts[finding.id], text)
end

-- Those that are to be told in this packet: all about it, when they are known.
local function add_findings(item, findings, pinfo)
    for _, finding in ipairs(findings) do
        if pinfo.visited or finding.found_in == finding.packet then
            add_finding(item, finding)
        end
    end
end

local function add_text(tree, field, range, text)
    if #text == 0 then
        return tree:add(field, range, "")
    end
    return (tree:add_packet_field(field, range(0, #text), ENC_UTF_8))
end

-- Adds what the bytes at `range` say; they are `bytes`.
local function add_value(tree, field, range, bytes, entry)
    local kind = entry.kind
    if kind == "line" then
        return add_text(tree, field, range, text_of(bytes):match("^[^\n]*"))
    elseif entry.text then
        return add_text(tree, field, range, text_of(bytes))
    elseif kind == "version" then
        return tree:add(field, range, version(bytes))
    elseif kind == "sign and magnitude" then
        local byte = bytes:byte()
        return tree:add(field, range, byte < 128 and byte or 128 - byte)
    elseif kind == "bit" then
        return tree:add(field, range, bit.band(bytes:byte(), bit.lshift(1, entry.bit)) ~= 0)
    elseif kind == "true if zero" then
        return tree:add(field, range, bytes:byte() == 0)
    end
    return tree:add(field, range)
end

local function add_named(tree, name, range, bytes, entry)
    local item = add_value(tree, fields[name], range, bytes, entry)
    if tree.visible and entry.meaning then
        item:append_text(" (" .. entry.meaning .. ")")
    end
end

-- The name of a parameter of an encoder has the channel that the answer tells.
local function with_channel(name, info)
    local channel = info:byte(2)
    return channel < 2 and name:gsub("%.c%.", "." .. channel .. ".") or name
end

-- Adds those entries of a layout that are there whole. `range` is that of the info.
local function add_layout(tree, layout, range, info)
    for _, entry in ipairs(layout) do
        if entry.at + entry.width <= #info and (entry.parameter or has_value(entry)) then
            local bytes = info:sub(entry.at + 1, entry.at + entry.width)
            local name = entry.name or with_channel(entry.parameter, info)
            add_named(tree, name, range(entry.at, entry.width), bytes, PARAMETERS[name] or entry)
        end
    end
end

local function add_parameter(tree, row, range, info)
    local parameter, value = PARAMETERS[row.parameter], info:sub(2)
    if #value > 0 and (parameter.text or #value >= row.width) then
        local width = parameter.text and #value or row.width
        add_named(tree, row.parameter, range(1, width), value:sub(1, width), parameter)
    elseif parameter.text then
        add_named(tree, row.parameter, range(0, 1), "", parameter)
    end
end

local function add_sub_command(tree, range, frame, is_request)
    local info = frame.info
    if not is_request and is_refusal(frame) then
        return
    end
    tree:add(fields.sub_command, range(0, 1))
    local row = SUB_COMMANDS[info:byte(1)]
    if not row then
        return
    elseif row.parameter then
        if is_request then
            add_parameter(tree, row, range, info)
        end
        return
    end
    local layout = is_request and row.request or row.answer
    if not is_request and row.other_answer and #info ~= LAYOUTS[row.answer].length then
        layout = row.other_answer
    end
    if layout then
        add_layout(tree, LAYOUTS[layout], range, info)
    end
end

local function add_info(tree, range, frame, is_request)
    local item = tree:add(fields.info, range)
    if not frame.codes_are_right or not COMMANDS[frame.command] then
        return
    elseif frame.command == WRITE then
        add_sub_command(item, range, frame, is_request)
    elseif frame.command == CONFIGURATION then
        local layout = is_request and LAYOUTS.block or LAYOUTS["configuration_" .. block_of(frame.info)]
        add_layout(item, layout, range, frame.info)
    elseif not is_request then
        add_layout(item, LAYOUTS[COMMANDS[frame.command].answer], range, frame.info)
    end
end

local function add_code(tree, field, status_field, range, code, right)
    local is_right = code == right
    local item = tree:add(field, range)
    item:append_text(is_right and " [right]" or string.format(" [wrong, should be 0x%02x]", right))
    item:add(status_field, is_right and 1 or 0):set_generated()
end

local function add_links(tree, note, is_request)
    tree:add(is_request and fields.request or fields.answer, true):set_generated()
    if note.request_in then
        tree:add(fields.request_in, note.request_in):set_generated()
    end
    if note.answer_in then
        tree:add(fields.answer_in, note.answer_in):set_generated()
    end
    if note.response_time then
        local seconds = math.floor(note.response_time)
        local nanoseconds = math.floor((note.response_time - seconds) * 1e9 + 0.5)
        tree:add(fields.response_time, NSTime.new(seconds, nanoseconds)):set_generated()
    end
    for _, packet in ipairs(note.written_in or {}) do
        tree:add(fields.written_in, packet):set_generated()
    end
    if note.no_answer then
        tree:add(fields.no_answer, texts_of_findings[note.no_answer]):set_generated()
        if note.no_answer_in ~= note.packet then
            tree:add(fields.no_answer_in, note.no_answer_in):set_generated()
        end
    end
end

-- Adds a frame whose area, plain, is what `source` shows.
local function add_frame(item, source, frame, note, is_request)
    local control = item:add(fields.control, source(1, 1))
    control:add(fields.crc8_mode, source(1, 1))
    control:add(fields.sequence, source(1, 1))
    control:add(fields.command, source(1, 1))
    item:add(fields.header, source(2, 3))
    item:add(fields.length, source(5, 1))
    if frame.info_length > 0 then
        add_info(item, source(HEAD, frame.info_length), frame, is_request)
    end
    local behind = HEAD + frame.info_length
    add_code(item, fields.checksum, fields.checksum_status, source(behind, 1), frame.checksum,
             frame.right_checksum)
    if frame.crc then
        add_code(item, fields.crc, fields.crc_status, source(behind + 1, 1), frame.crc, frame.right_crc)
    end
    add_links(item, note, is_request)
end
