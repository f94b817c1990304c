-- Frames in bytes: where they begin and end, what stuffing and scrambling hide, whether their codes
-- are right. Knows nothing of the analyser.

local START = 0xA5
local START_CHAR = string.char(START)
local HEAD = 6 -- bytes up to the length

-- The receive machine of a module: takes bytes, removes the stuffing.
local function new_machine()
    return {count = 0, may_be_doubled = false}
end

-- Takes a byte; returns true when it completes a frame.
local function feed(machine, byte)
    local count = machine.count
    if count == 0 then
        if byte == START then
            machine[1], machine.count = byte, 1
        end
        return false
    end
    if byte == START and machine.may_be_doubled and machine[count] == START then
        machine.may_be_doubled = false
        return false
    end
    count = count + 1
    machine[count], machine.count, machine.may_be_doubled = byte, count, true
    if count == HEAD then
        machine.total = HEAD + byte + (machine[2] >= 0x80 and 2 or 1)
    end
    return count == machine.total
end

-- How many bytes the frame at `start` has if none is doubled; nil when that is not known yet, or one is.
local function plain_length(bytes, start)
    local _, control, _, _, _, info_length = bytes:byte(start, start + HEAD - 1)
    if not info_length then
        return nil
    end
    local length = HEAD + info_length + (control >= 0x80 and 2 or 1)
    local doubled = bytes:find(START_CHAR, start + 1, true)
    if start + length - 1 > #bytes or (doubled and doubled < start + length) then
        return nil
    end
    return length
end

-- The first frame from the byte `from` on: where it starts, its length in `bytes`, its area without
-- stuffing, how many bytes were doubled. One that is not complete has no area; without a start byte
-- there is none.
local function take_frame(bytes, from)
    local start = bytes:find(START_CHAR, from, true)
    if not start then
        return nil
    end
    local length = plain_length(bytes, start)
    if length then
        return {start = start, length = length, area = bytes:sub(start, start + length - 1), doubled = 0}
    end
    local machine = new_machine()
    for at = start, #bytes do
        if feed(machine, bytes:byte(at)) then
            length = at - start + 1
            local area = string.char(table.unpack(machine, 1, machine.count))
            local ends_doubled = machine[machine.count] == START and bytes:byte(at + 1) == START
            if ends_doubled then
                length = length + 1
            end
            return {
                start = start, length = length, area = area, doubled = length - #area, ends_doubled = ends_doubled,
            }
        end
    end
    return {start = start}
end

-- CRC-8/MAXIM: x^8 + x^5 + x^4 + 1, reflected, from 0.
local CRC8 = {}
for byte = 0, 255 do
    local crc = byte
    for _ = 1, 8 do
        crc = crc % 2 == 1 and bit.bxor(bit.rshift(crc, 1), 0x8C) or bit.rshift(crc, 1)
    end
    CRC8[byte] = crc
end

-- What an info byte is in CRC8 mode.
local SCRAMBLED = {}
for byte = 0, 255 do
    SCRAMBLED[string.char(byte)] = string.char(bit.bxor(byte, 0x55))
end

local function scramble(area)
    local last = HEAD + area:byte(HEAD)
    return area:sub(1, HEAD) .. area:sub(HEAD + 1, last):gsub(".", SCRAMBLED) .. area:sub(last + 1)
end

-- What both codes of a frame should be, by its area as on the wire.
local function codes_of(area)
    local sum, crc = 0, 0
    for at = 2, HEAD + area:byte(HEAD) do
        local byte = area:byte(at)
        sum = sum + byte
        crc = CRC8[bit.bxor(crc, byte)]
    end
    return (256 - sum % 256) % 256, crc
end

-- A frame's parts, by its area as on the wire.
local function read_area(area)
    local control, _, _, _, info_length = area:byte(2, HEAD)
    local frame = {
        area = area,
        control = control,
        command = control % 16,
        sequence = math.floor(control / 16) % 8,
        crc8_mode = control >= 0x80,
        info_length = info_length,
        checksum = area:byte(HEAD + info_length + 1),
    }
    local crc
    frame.right_checksum, crc = codes_of(area)
    if frame.crc8_mode then
        frame.crc, frame.right_crc = area:byte(HEAD + info_length + 2), crc
    end
    frame.codes_are_right = frame.checksum == frame.right_checksum and frame.crc == frame.right_crc
    frame.plain = frame.crc8_mode and scramble(area) or area
    frame.info = frame.plain:sub(HEAD + 1, HEAD + info_length)
    frame.ends_in_start = area:byte(-1) == START
    return frame
end

-- The same of a record of a trace file, in which the info is in clear, but for that of a frame with
-- another sequence number than its receiver expected.
local function read_traced(area)
    local frame = read_area(area)
    if frame.crc8_mode then
        local clear = read_area(scramble(area))
        if clear.codes_are_right or not frame.codes_are_right then
            frame = clear
        end
    end
    return frame
end
