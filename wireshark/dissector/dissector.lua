-- Where frames come from: TCP, trace files, and what TCP alone knows of connections.

local tcp_ports = DissectorTable.get("tcp.port")
local packet_kinds = DissectorTable.get("wtap_encap")

-- The packet that is dissected at present, how many runs of bytes and frames it had so far, and their
-- lines.
local present, run_count, frame_count, lines = nil, 0, 0, {}

local function begin_packet(number)
    if number ~= present then
        present, run_count, frame_count, lines = number, 0, 0, {}
    end
end

-- Whether a port is a module's, by who dissects it; `known_ports` forgets with each capture.
local known_ports = {}
local handle -- of the dissector
local zondar_at_port -- what stands in the table for the ports of the preference

local function is_ours(dissector)
    local name = dissector and tostring(dissector)
    return name == zondar.name or name == zondar_at_port.name
end

local function is_module(port)
    local is = known_ports[port]
    if is == nil then
        is = is_ours(tcp_ports:get_dissector(port))
        known_ports[port] = is
    end
    return is
end

-- Whether the master sent a packet of these ends. When both ports are modules', the connection that is
-- known tells, and else who sends first.
local function is_from_master(from, source_port, to, destination_port)
    if is_module(source_port) and is_module(destination_port) then
        return not connections[to .. " " .. from]
    end
    return is_module(destination_port)
end

-- The connection that a packet of these ends belongs to, its key, and whether the master sent it.
local function connection_of(source, source_port, destination, destination_port)
    local from, to = source .. ":" .. source_port, destination .. ":" .. destination_port
    if is_from_master(from, source_port, to, destination_port) then
        local connection, key = connection_between(from, source, to)
        return connection, key, true
    end
    local connection, key = connection_between(to, destination, from)
    return connection, key, false
end

local function ends_of(pinfo)
    return tostring(pinfo.src), pinfo.src_port, tostring(pinfo.dst), pinfo.dst_port
end

-- What is known of the packet's next frame; `take` finds it out when the packet comes by first.
local function next_note(pinfo, take)
    frame_count = frame_count + 1
    local notes = listed(told.frames, pinfo.number)
    if not pinfo.visited then
        local note = take()
        note.packet = pinfo.number
        notes[frame_count] = note
    end
    return notes[frame_count] or {findings = {}, packet = pinfo.number}
end

local function add_line(pinfo, text)
    lines[#lines + 1] = text
    pinfo.cols.protocol:set("ZONDAR")
    pinfo.cols.info:set(table.concat(lines, " | "))
end

-- Shows a frame; its area, plain, is what `source` holds, or a tvb of its own when that is nil.
local function show_frame(tree, range, pinfo, frame, note, is_request, source)
    local text = text_of_frame(frame, note, is_request)
    add_line(pinfo, text .. remarks(note))
    local is_wanted = tree:referenced(handle)
    if not is_wanted and #note.findings == 0 then
        return
    end
    local item = tree:add(zondar, range, "Zondar, " .. text)
    add_findings(item, note.findings, pinfo)
    if is_wanted then
        source = source or ByteArray.new(frame.plain, true):tvb("Frame in clear")
        add_frame(item, source, frame, note, is_request)
        if frame.doubled and frame.doubled > 0 then
            item:add(fields.doubled, frame.doubled):set_generated()
        end
    end
end

-- TCP -------------------------------------------------------------------------------------------

local function show_skipped(tree, pinfo, range)
    local item = tree:add(zondar, range, "Zondar, bytes outside of frames")
    item:add(fields.skipped, range)
    add_finding(item, {id = "skipped"})
    add_line(pinfo, string.format("%d bytes outside of frames", range:len()))
end

local function took_frame(connection, is_request, frame, wire, pinfo)
    frame.packet, frame.time, frame.connection = pinfo.number, pinfo.rel_ts, connection
    if is_request then
        return took_request(frame, wire)
    end
    return took_answer(frame)
end

-- What stands at `range` of a frame: more is to come, or never will when the recording has cut the
-- packet.
local function take_beginning(connection, is_request, range, is_cut, pinfo, tree)
    if not pinfo.visited then
        if is_cut then
            lose_sight(connection.module)
        else
            connection.unfinished[is_request] = {bytes = range:raw(), packet = pinfo.number}
        end
    end
    if pinfo.can_desegment > 0 then
        pinfo.desegment_offset = range:offset()
        pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
    else
        tree:add(zondar, range, "Zondar, incomplete"):add(fields.unfinished, range)
    end
end

-- A whole frame, as `take_frame` found it, which stands at `range`. When it is the last of these bytes,
-- the second of a byte that is sent twice may be still to come.
local function take_whole(connection, is_request, taken, range, is_last, pinfo, tree)
    local frame = read_area(taken.area)
    frame.doubled, frame.ends_doubled = taken.doubled, taken.ends_doubled
    if not pinfo.visited then
        connection.awaits_double[is_request] = is_last and frame.ends_in_start and not frame.ends_doubled
    end
    local note = next_note(pinfo, function()
        return took_frame(connection, is_request, frame, range:raw(), pinfo)
    end)
    local is_plain = taken.doubled == 0 and not frame.crc8_mode
    show_frame(tree, range, pinfo, frame, note, is_request, is_plain and range or nil)
end

-- Whether a run of bytes begins with the second of two that ended the frame before it.
local function begins_with_double(connection, is_request, bytes, pinfo)
    run_count = run_count + 1
    if not pinfo.visited and connection.awaits_double[is_request] then
        connection.awaits_double[is_request] = nil
        if bytes:byte(1) == START then
            listed(told.doubles, pinfo.number)[run_count] = true
            if is_request then
                took_double(connection)
            end
        end
    end
    local doubles = told.doubles[pinfo.number]
    return doubles and doubles[run_count]
end

function zondar.dissector(tvb, pinfo, tree)
    if pinfo.in_error_pkt then
        return 0 -- what an ICMP message quotes was seen before
    end
    begin_packet(pinfo.number)
    local bytes = tvb:raw()
    local connection, _, is_request = connection_of(ends_of(pinfo))
    if not pinfo.visited then
        connection.unfinished[is_request] = nil
    end
    local from = begins_with_double(connection, is_request, bytes, pinfo) and 2 or 1
    while from <= #bytes do
        local taken = take_frame(bytes, from)
        local start = taken and taken.start or #bytes + 1
        if start > from then
            if is_request and not pinfo.visited then
                took_bytes(connection, bytes:sub(from, start - 1))
            end
            show_skipped(tree, pinfo, tvb(from - 1, start - from))
        end
        if not taken then
            break
        elseif not taken.area then
            take_beginning(connection, is_request, tvb(start - 1), tvb:reported_len() > tvb:len(), pinfo, tree)
            break
        end
        from = start + taken.length
        take_whole(connection, is_request, taken, tvb(start - 1, taken.length), from > #bytes, pinfo, tree)
    end
    return #bytes
end

-- Trace files -----------------------------------------------------------------------------------

local trace = Proto("zondar_trace", "Zondar trace file")
local other_traces = packet_kinds:get_dissector(wtap.USER0)

-- A trace file has one module, and of whose side it is, its first frame tells: that is a request.
local traced, direction_of_requests

-- A record is its direction and a frame as long as it says, which begins with a start byte, or is
-- empty when a reception ended by time-out.
local function is_record(bytes)
    if #bytes < 2 + HEAD + 1 or #bytes ~= 1 + HEAD + bytes:byte(1 + HEAD) + 2 or bytes:byte(1) > 1 then
        return false
    end
    return bytes:byte(2) == START or not bytes:find("[^\0]", 2)
end

local function show_record(tvb, pinfo, tree, bytes, is_request)
    local info_length = bytes:byte(1 + HEAD)
    local in_crc8_mode = bytes:byte(3) >= 0x80
    local frame = read_traced(bytes:sub(2, 1 + HEAD + info_length + (in_crc8_mode and 2 or 1)))
    local note = next_note(pinfo, function()
        frame.packet, frame.connection = pinfo.number, traced
        return is_request and took_request(frame, "") or took_answer(frame)
    end)
    local range = tvb(1, #frame.area)
    local is_plain = frame.plain == bytes:sub(2, 1 + #frame.area)
    show_frame(tree, range, pinfo, frame, note, is_request, is_plain and range or nil)
end

function trace.dissector(tvb, pinfo, tree)
    local bytes = tvb:raw()
    if not is_record(bytes) then
        return other_traces and other_traces:call(tvb, pinfo, tree) or 0
    end
    begin_packet(pinfo.number)
    local direction, is_frame = bytes:byte(1), bytes:byte(2) == START
    if is_frame then
        direction_of_requests = direction_of_requests or direction
    end
    local is_request = direction == direction_of_requests
    pinfo.cols.src:set(is_request and "master" or "module")
    pinfo.cols.dst:set(is_request and "module" or "master")
    if is_frame then
        show_record(tvb, pinfo, tree, bytes, is_request)
    else
        if not pinfo.visited then
            took_nothing(traced.module, is_request, pinfo.number)
        end
        add_line(pinfo, "nothing came in time")
        tree:add(zondar, tvb(1), "Zondar, nothing came in time")
    end
    return #bytes
end

packet_kinds:add(wtap.USER0, trace)

-- Connections -----------------------------------------------------------------------------------

-- Segments without bytes reach no dissector of what is above TCP: this one comes behind all others.
local connections_seen = Proto("zondar_connections", "Zondar connections")

local TCP_PORT = 2 -- the analyser's word for a kind of ports
local TCP = 6 -- as IPv4 has it
local ADDRESS_LENGTH = 4 -- of IPv4
local MOST_HEADERS = 128 -- bytes up to the end of a TCP header

-- By its text, the bytes of an IPv4 address; empty for any other.
local addresses = setmetatable({}, {__index = function(known, text)
    local a, b, c, d = text:match("^(%d+)%.(%d+)%.(%d+)%.(%d+)$")
    known[text] = a and string.char(a, b, c, d) or ""
    return known[text]
end})

local function two_bytes(bytes, at)
    local high, low = bytes:byte(at, at + 1)
    return high * 256 + low
end

-- The TCP header of a packet on whatever kind of network, found by its ends: flags, sequence number,
-- length of what it carries. Nothing when it has none.
local function tcp_header(tvb, source, source_port, destination, destination_port)
    local pair = addresses[source] .. addresses[destination]
    local bytes = tvb:raw(0, math.min(tvb:len(), MOST_HEADERS))
    local at = #pair == 2 * ADDRESS_LENGTH and bytes:find(pair, 1, true)
    while at do
        local ip = at - 12
        local length = ip > 0 and bytes:byte(ip) % 16 * 4 or 0
        local tcp = ip + length
        if length >= 20 and bytes:byte(ip + 9) == TCP and tcp + 19 <= #bytes and
            two_bytes(bytes, tcp) == source_port and two_bytes(bytes, tcp + 2) == destination_port then
            local header = math.floor(bytes:byte(tcp + 12) / 16) * 4
            return bytes:byte(tcp + 13), two_bytes(bytes, tcp + 4) * 65536 + two_bytes(bytes, tcp + 6),
                   two_bytes(bytes, ip + 2) - length - header
        end
        at = bytes:find(pair, at + 1, true)
    end
end

local FIN, SYN, RST, ACK = 0x01, 0x02, 0x04, 0x10

local function take_segment(tvb, packet, ...)
    local flags, sequence, length = tcp_header(tvb, ...)
    if not flags then
        return
    end
    local connection, key, from_master = connection_of(...)
    local function has(flag)
        return bit.band(flags, flag) ~= 0
    end
    if has(SYN) then
        if not from_master then
            connection.accepted = true
        elseif not has(ACK) then
            opened(key, connection, sequence)
        end
        return
    end
    if length > 0 then
        if from_master then
            master_sent(connection, packet, (sequence + length) % 2 ^ 32)
        else
            module_sent(connection)
        end
    end
    if has(FIN) or has(RST) then
        if from_master then
            master_ended(connection, packet, has(RST))
        else
            module_ended(connection, packet, has(RST))
        end
    end
end

-- What belongs to no frame of this packet: findings of connections, and such of earlier packets that
-- will not come by again.
local function show_packet(tvb, pinfo, tree, of_packet, of_others)
    if pinfo.visited and not of_packet then
        return
    end
    local item = tree:add(zondar, tvb(), "Zondar, connection")
    if of_packet then
        if of_packet.empty_connections then
            item:add(fields.empty_connections, of_packet.empty_connections):set_generated()
        end
        if of_packet.broken_off then
            local bytes = ByteArray.new(of_packet.broken_off, true):tvb("Frame that breaks off")
            item:add(fields.broken_off, bytes())
            item:add(fields.began_in, of_packet.began_in):set_generated()
        end
        add_findings(item, of_packet, pinfo)
        pinfo.cols.info:append(remarks({findings = of_packet}))
    end
    if of_others and not pinfo.visited then
        for _, finding in ipairs(of_others) do
            add_finding(item, {id = finding.id, detail = string.format("packet %d", finding.packet)})
        end
    end
end

function connections_seen.dissector(tvb, pinfo, tree)
    present = nil
    local packet = pinfo.number
    if not pinfo.visited and pinfo.port_type == TCP_PORT and
        (is_module(pinfo.dst_port) or is_module(pinfo.src_port)) then
        take_segment(tvb, packet, ends_of(pinfo))
    end
    local of_packet, of_others = told.packets[packet], told.elsewhere[packet]
    if of_packet or of_others then
        show_packet(tvb, pinfo, tree, of_packet, of_others)
    end
    return 0
end

register_postdissector(connections_seen)

-- Ports -----------------------------------------------------------------------------------------

-- In the table stands another protocol for the ports of the preference than for those that a user
-- chooses by Decode As: so one does not take away what the other has set.
zondar_at_port = Proto("zondar_at_port", "Zondar, by its port")

function zondar_at_port.dissector(tvb, pinfo, tree)
    if pinfo.can_desegment > 0 then
        pinfo.can_desegment = pinfo.can_desegment + 1 -- a call takes one away
    end
    return handle:call(tvb, pinfo, tree)
end

zondar.prefs.port = Pref.range("TCP ports", "8001", "The ports that modules listen on", 65535)

-- Whose the ports of the preference were before.
local owners = {}

local function set_ports(text)
    local wanted = {}
    for first, last in text:gmatch("(%d+)%-?(%d*)") do
        for port = tonumber(first), tonumber(last) or tonumber(first) do
            wanted[port] = true
        end
    end
    for port, owner in pairs(owners) do
        if not wanted[port] then
            local owner_now = tcp_ports:get_dissector(port)
            if owner_now and tostring(owner_now) == zondar_at_port.name then
                tcp_ports:remove(port, zondar_at_port)
                if owner then
                    tcp_ports:add(port, owner)
                end
            end
            owners[port] = nil
        end
    end
    for port in pairs(wanted) do
        if owners[port] == nil then
            local owner_now = tcp_ports:get_dissector(port)
            owners[port] = owner_now or false
            if not is_ours(owner_now) then
                tcp_ports:add(port, zondar_at_port)
            end
        end
    end
end

function zondar.prefs_changed()
    known_ports = {}
    set_ports(zondar.prefs.port)
end

function zondar.init()
    forget_everything()
    known_ports, present = {}, nil
    traced, direction_of_requests = new_connection(module_at("trace file")), nil
end

handle = Dissector.get("zondar")
tcp_ports:add_for_decode_as(zondar)
set_ports("8001")
