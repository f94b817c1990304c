-- Which answer belongs to which request, and what went wrong: by the module's own rules, from
-- connections and frames in the order of packets. Knows nothing of the analyser.
--
-- A module reads its requests from one connection until that ends; each answer goes into the next one
-- that somebody opens. So an answer is matched over all connections of a module: in the order of
-- requests, whoever sent them.

local ATTEMPTS = 501 -- failed reads after which a module gives up a frame
local SERIES = 8 -- empty connections that are no accident any more
local REPLAYS = 3 -- a sound module has two answers left at most

-- What was found out, by packet.
local told = {}

local modules, connections = {}, {}

local function forget_everything()
    told.frames, told.packets, told.elsewhere, told.doubles = {}, {}, {}, {}
    modules, connections = {}, {}
end

local function listed(lists, key)
    local list = lists[key]
    if not list then
        list = {}
        lists[key] = list
    end
    return list
end

-- A finding of a frame, by its note, or of a packet. It is told where it belongs when the analyser
-- comes by again, and where it was found when it does not.
local function found(note, packet, id, found_in, detail)
    local finding = {id = id, packet = packet, found_in = found_in, detail = detail}
    local list = note and note.findings or listed(told.packets, packet)
    list[#list + 1] = finding
    if found_in ~= packet then
        list = listed(told.elsewhere, found_in)
        list[#list + 1] = finding
    end
end

local function module_at(address)
    local module = modules[address]
    if not module then
        module = {queue = {}, empty = 0, stray = 0, written = {}}
        modules[address] = module
    end
    return module
end

-- `host` is the master's address without its port; nil in a trace file, which knows no connections.
-- `waiting` are its requests in the module's queue. Of one direction of it, by whether that is the
-- requests': a frame that is not complete yet, and whether the last one still awaits the second of a byte
-- that is sent twice.
local function new_connection(module, host)
    return {module = module, host = host, unfinished = {}, awaits_double = {}, waiting = 0}
end

-- `master` and `address` of the module with their ports, `host` of the master without.
local function connection_between(master, host, address)
    local key = master .. " " .. address
    local connection = connections[key]
    if not connection then
        connection = new_connection(module_at(address), host)
        connections[key] = connection
    end
    return connection, key
end

-- What was written ------------------------------------------------------------------------------

-- What reading back must give after a value was written; nil when that cannot be said.
local function read_back_of(row, value)
    local parameter = PARAMETERS[row.parameter]
    if parameter.text then
        if not value:find("\0", 1, true) then
            return nil
        end
        local text = text_of(value):gsub("%%", " ", 1)
        return text:sub(1, math.min(row.width - 1, parameter.shown or row.width))
    end
    if #value < row.width then
        return nil
    end
    local number = number_of(value:sub(1, row.width))
    if parameter.not_stored then
        return 0
    elseif row.effect == "masks_input" then
        return number == 1 and 1 or 0
    end
    return parameter.stored_as and parameter.stored_as[number] or number
end

-- Takes in that a write was carried out, or, in doubt, that it may have been.
local function note_write(module, request, in_doubt)
    local row = SUB_COMMANDS[request.info:byte(1)]
    if not row then
        return
    end
    if row.effect == "restores_factory" then
        module.written = {}
    end
    local wanted = row.parameter and not in_doubt and read_back_of(row, request.info:sub(2)) or nil
    for _, name in ipairs(row.also or {}) do
        module.written[name] = nil
    end
    if row.parameter then
        module.written[row.parameter] = wanted and {value = wanted, packet = request.packet}
    end
    if row.effect == "next_too" and wanted then
        module.written[row.also[1]] = {value = wanted, packet = request.packet}
    end
end

local function compare_with_written(module, answer, note)
    local layout = LAYOUTS["configuration_" .. block_of(answer.info)]
    if #answer.info ~= layout.length then
        return
    end
    for _, field in ipairs(layout) do
        local written = field.parameter and module.written[field.parameter]
        if written then
            module.written[field.parameter] = nil
            local bytes = answer.info:sub(field.at + 1, field.at + field.width)
            local read = type(written.value) == "string" and text_of(bytes) or number_of(bytes)
            if read ~= written.value then
                local detail = string.format("%s: %s was written, %s is read", field.parameter,
                                             shown(written.value), shown(read))
                found(note, answer.packet, "differs", answer.packet, detail)
                note.written_in = note.written_in or {}
                table.insert(note.written_in, written.packet)
            end
        end
    end
end

-- Requests --------------------------------------------------------------------------------------

-- The request will have no answer, as is found out in that packet.
local function without_answer(request, reason, found_in)
    found(request.note, request.packet, reason, found_in)
    request.note.no_answer, request.note.no_answer_in = reason, found_in
end

-- Takes those requests out of the queue that `is_meant` says. The module had read them, unless it
-- answered into their connection: what they were to write may have been written.
local function give_up_where(module, is_meant, reason, found_in)
    local rest = {}
    for position, request in ipairs(module.queue) do
        if is_meant(request, position) then
            request.connection.waiting = request.connection.waiting - 1
            without_answer(request, reason, found_in)
            if request.command == WRITE and reason ~= "not_read" then
                note_write(module, request, true)
            end
        else
            rest[#rest + 1] = request
        end
    end
    module.queue = rest
end

-- Those that came on that connection. Most have none: a long queue is left alone.
local function give_up_on(connection, reason, found_in)
    if connection.waiting > 0 then
        give_up_where(connection.module, function(request) return request.connection == connection end, reason,
                      found_in)
    end
end

-- Lets the module read bytes that it takes for the rest of a frame. What it makes of them is no request
-- that anybody sent.
local function read_on(module, bytes)
    for at = 1, #bytes do
        if feed(module.machine, bytes:byte(at)) then
            module.machine = new_machine()
        end
    end
    if module.machine.count == 0 then
        module.machine = nil
    end
end

-- What is wrong with a frame by itself; the first of it is why a request has no answer.
local function faults_of(frame, is_request)
    local faults = {}
    local function check(id, holds)
        if holds then
            faults[#faults + 1] = id
        end
    end
    check("wrong_checksum", frame.checksum ~= frame.right_checksum)
    check("wrong_crc", frame.crc ~= frame.right_crc)
    if frame.codes_are_right then
        check("other_sequence", frame.sequence ~= 0)
        check("no_such_command", is_request and not COMMANDS[frame.command])
    end
    return faults
end

local function new_note(frame, is_request)
    local note = {findings = {}}
    local faults = faults_of(frame, is_request)
    for _, id in ipairs(faults) do
        found(note, frame.packet, id, frame.packet)
    end
    if is_request and faults[1] then
        note.no_answer, note.no_answer_in = faults[1], frame.packet
    end
    return note
end

-- Bytes by a master that belong to no frame, or to one that breaks off.
local function took_bytes(connection, bytes)
    if connection.module.machine and not connection.answered then
        read_on(connection.module, bytes)
    end
end

-- The module took a frame for complete with the first of two bytes A5: the second one starts another.
local function took_double(connection)
    if not connection.answered then
        connection.module.machine = connection.module.machine or new_machine()
        feed(connection.module.machine, START)
    end
end

-- `wire` is the frame as sent, `frame` knows its packet, time and connection. Returns its note.
local function took_request(frame, wire)
    local connection = frame.connection
    local module = connection.module
    local note = new_note(frame, true)
    frame.note = note
    if frame.ends_in_start then
        found(note, frame.packet, "ends_in_a5", frame.packet)
    end
    if connection.answered then
        without_answer(frame, "not_read", frame.packet)
    elseif connection.module_ended then
        without_answer(frame, "closed", frame.packet)
    elseif module.machine then
        read_on(module, wire)
        without_answer(frame, "lost", frame.packet)
    else
        if not note.no_answer then
            module.queue[#module.queue + 1] = frame
            connection.waiting = connection.waiting + 1
        end
        if frame.ends_doubled then
            took_double(connection)
        end
    end
    return note
end

-- Answers ---------------------------------------------------------------------------------------

local function took_strange_answer(connection, answer)
    local module = connection.module
    local id = "no_request"
    if connection.opened and not connection.sent then
        module.stray = module.stray + 1
        if module.stray >= REPLAYS then
            id = "replays"
        end
    end
    found(answer.note, answer.packet, id, answer.packet)
end

local function is_refusal(answer)
    return answer.command == WRITE and answer.codes_are_right and #answer.info == LAYOUTS.refusal.length and
               not answer.info:find("[^\0]")
end

local function took_matched_answer(connection, request, answer)
    local module, note = connection.module, answer.note
    module.stray = 0
    request.connection.waiting = request.connection.waiting - 1
    note.request_in, note.request = request.packet, request
    request.note.answer_in = answer.packet
    if answer.time then -- in a trace file they are too short
        note.response_time = answer.time - request.time
        request.note.response_time = note.response_time
    end
    if request.connection.host ~= connection.host then
        found(note, answer.packet, "other_master", answer.packet)
    end
    if answer.command == WRITE then
        note_write(module, request, #answer.info ~= 0 or not answer.codes_are_right)
    elseif answer.command == CONFIGURATION and #answer.info > 0 and answer.codes_are_right then
        compare_with_written(module, answer, note)
    end
end

local function module_sent(connection)
    connection.module.empty = 0
    connection.answered = true
end

-- Where the first request with that command is; nothing when there is none.
local function place_of(queue, command)
    for position, request in ipairs(queue) do
        if request.command == command then
            return position
        end
    end
end

-- `frame` knows its packet, time and connection. Returns its note.
local function took_answer(frame)
    local connection = frame.connection
    local module = connection.module
    local note = new_note(frame, false)
    frame.note = note
    if connection.host then -- of a trace file nothing is known of connections
        module_sent(connection)
        give_up_on(connection, "not_read", frame.packet)
    end
    local match = place_of(module.queue, frame.command)
    if match then
        if match > 1 then
            give_up_where(module, function(_, position) return position < match end, "passed_over", frame.packet)
        end
        took_matched_answer(connection, table.remove(module.queue, 1), frame)
    else
        took_strange_answer(connection, frame)
    end
    if is_refusal(frame) then
        found(note, frame.packet, "refused", frame.packet)
    end
    return note
end

-- The bytes of a packet that the recording has cut: what was asked, answered and written is not known.
local function lose_sight(module)
    for _, request in ipairs(module.queue) do
        request.connection.waiting = 0
    end
    module.queue, module.machine, module.written = {}, nil, {}
end

-- A record of a trace file for a reception that ended by time-out: the answer to what was asked did not
-- come; without that somebody began a frame.
local function took_nothing(module, is_request, packet)
    if is_request or #module.queue == 0 then
        found(nil, packet, "breaks_off", packet)
    end
    if not is_request then
        give_up_where(module, function() return true end, "timed_out", packet)
    end
end

-- Connections -----------------------------------------------------------------------------------

-- A SYN begins a new connection, unless it is the one that began this one, seen twice.
local function opened(key, connection, sequence)
    if connection.sequence == sequence and not connection.sent and not connection.master_ended then
        return
    end
    local new = new_connection(connection.module, connection.host)
    new.opened, new.sequence = true, sequence
    connections[key] = new
end

-- `behind` is the sequence number behind the bytes. Those that were there before, as in a probe that
-- keeps a connection, are nothing new.
local function master_sent(connection, packet, behind)
    local module = connection.module
    if connection.behind and (behind - connection.behind - 1) % 2 ^ 32 >= 2 ^ 31 then
        return
    end
    connection.behind = behind
    if module.empty >= SERIES and module.empty < ATTEMPTS then
        local detail = string.format("%d empty connections in a row", module.empty)
        found(nil, packet, "resync_cut_short", packet, detail)
    end
    module.empty, module.stray = 0, 0
    connection.sent = true
end

-- What stands there of a frame that nobody will send the rest of.
local function break_off(connection, is_request, packet)
    local rest = connection.unfinished[is_request]
    connection.unfinished[is_request] = nil
    if not rest then
        return
    end
    found(nil, packet, "breaks_off", packet)
    local list = listed(told.packets, packet)
    list.broken_off, list.began_in = rest.bytes, rest.packet
    if is_request and not connection.answered then
        connection.module.machine = connection.module.machine or new_machine()
        read_on(connection.module, rest.bytes)
    end
end

local function master_ended(connection, packet, by_reset)
    break_off(connection, true, packet)
    if by_reset and connection.sent and not connection.answered and not connection.master_ended and
        not connection.module_ended then
        found(nil, packet, "reset", packet)
    end
    connection.master_ended = true
end

local function count_empty(connection, packet)
    local module = connection.module
    module.empty = module.empty + 1
    listed(told.packets, packet).empty_connections = module.empty
    if module.empty == ATTEMPTS then
        module.machine = nil
        found(nil, packet, "resynchronised", packet)
    end
end

-- Requests that come behind the end have no answer either: each is followed by a reset.
local function module_ended(connection, packet, by_reset)
    local module = connection.module
    give_up_on(connection, "closed", packet)
    if by_reset and connection.opened and not connection.accepted then
        -- Nobody listens: a module that this master knew is gone.
        give_up_where(module, function(request) return request.connection.host == connection.host end, "closed",
                      packet)
    end
    if connection.module_ended then
        return
    end
    connection.module_ended = true
    break_off(connection, false, packet)
    if connection.master_ended and not connection.sent and not connection.answered then
        count_empty(connection, packet)
    elseif not connection.master_ended and not connection.answered then
        module.machine = nil
    end
end
