-- Wireshark dissector of the packets between the flasher and the CAN server. What they mean: docs/protocol.md.
--
--     tshark    -X lua_script:dunmallow.lua -O dunmallow -r upload.pcapng
--     wireshark -X lua_script:dunmallow.lua upload.pcapng

local proto = Proto("dunmallow", "CAN Flasher Protocol")

proto.prefs.ports = Pref.range("TCP ports", "41265", "Ports on which the CAN server listens", 65535)
proto.prefs.longest = Pref.uint("Longest packet", 1048576,
    "A length above this number of bytes is taken for a wrong one; nothing is waited for")

local HEADER_BYTES = 8
local SERIAL_NOT_KNOWN = 0x1FFFFFFF -- and above, in a report

-- As the flasher shows them.
local MODES = { [0] = "ISO Style", [1] = "MT CAN", [2] = "New Module", [3] = "Global" }
local STATES = {
    [0] = "Locked",
    [1] = "Idle",
    [2] = "Preparing for upload",
    [3] = "Searching for device",
    [4] = "Erasing FLASH",
    [5] = "Programming",
    [6] = "Done",
    [100] = "Error! Device not found.",
    [101] = "Error! Timed out while waiting for FLASH erase.",
    [102] = "Error! Timed out while waiting for response.",
    [103] = "Error! Unable to find the hex file.",
    [104] = "Error! Unable to open the hex file.",
    [105] = "Error! The hex file is incorrectly formatted.",
}
-- What a command is called, and how many bytes of payload it needs from each side that may send it.
local COMMANDS = {
    [1] = { name = "CmdPing", needs = { client = 1, server = 0 } },
    [2] = { name = "CmdConnectionInfo", needs = { server = 4 } },
    [1000] = { name = "CmdStatus", needs = { server = 8 } },
    [1001] = { name = "CmdStatusRequest", needs = { client = 0 } },
    [1002] = { name = "CmdStatusReset", needs = { client = 0 } },
    [1003] = { name = "CmdByte", needs = { client = 1 } },
    [1004] = { name = "CmdUpload", needs = { client = 8 } },
}
local COMMAND_NAMES = {}
for id, row in pairs(COMMANDS) do COMMAND_NAMES[id] = row.name end

local field = {
    length = ProtoField.uint32("dunmallow.length", "Length"),
    command = ProtoField.uint16("dunmallow.command", "Command", base.DEC, COMMAND_NAMES),
    payloadOffset = ProtoField.uint16("dunmallow.payload_offset", "Payload offset"),
    extraHeader = ProtoField.bytes("dunmallow.extra_header", "Further header bytes"),
    payload = ProtoField.bytes("dunmallow.payload", "Payload of an unknown command"),
    surplus = ProtoField.bytes("dunmallow.surplus", "Bytes that nobody reads"),
    lost = ProtoField.bytes("dunmallow.lost", "Bytes without a packet"),
    value = ProtoField.uint8("dunmallow.value", "Value"),
    mode = ProtoField.uint8("dunmallow.mode", "Mode", base.DEC, MODES),
    state = ProtoField.uint8("dunmallow.state", "State", base.DEC, STATES),
    progress = ProtoField.uint8("dunmallow.progress", "Progress (percent)"),
    address = ProtoField.uint8("dunmallow.address", "Device address", base.DEC_HEX),
    serial = ProtoField.uint32("dunmallow.serial", "Serial number"),
    path = ProtoField.string("dunmallow.path", "Hex file"),
    processId = ProtoField.uint32("dunmallow.process_id", "Process id"),
    nameLength = ProtoField.uint8("dunmallow.name_length", "Length of application name"),
    name = ProtoField.string("dunmallow.name", "Application name"),
    versionLength = ProtoField.uint8("dunmallow.version_length", "Length of version"),
    version = ProtoField.string("dunmallow.version", "Version"),
    labelLength = ProtoField.uint8("dunmallow.version_label_length", "Length of version label"),
    label = ProtoField.string("dunmallow.version_label", "Version label"),
}

local MALFORMED, UNDECODED, PROTOCOL = expert.group.MALFORMED, expert.group.UNDECODED, expert.group.PROTOCOL
local ERROR, WARN, NOTE = expert.severity.ERROR, expert.severity.WARN, expert.severity.NOTE
local problem = {
    length = ProtoExpert.new("dunmallow.bad_length", "The length is below 8: the link ends here", MALFORMED, ERROR),
    tooLong = ProtoExpert.new("dunmallow.too_long", "The length is beyond all reason", MALFORMED, ERROR),
    noHeader = ProtoExpert.new("dunmallow.no_header",
        "No header of a packet: unknown command, odd payload offset, and not all of it is here", MALFORMED, ERROR),
    offset = ProtoExpert.new("dunmallow.bad_offset", "The payload offset points outside the packet: there is no payload",
        MALFORMED, ERROR),
    header = ProtoExpert.new("dunmallow.offset_in_header", "The payload offset points into the header", MALFORMED, WARN),
    short = ProtoExpert.new("dunmallow.short_payload", "The payload is too short for its command: the packet is dropped",
        MALFORMED, ERROR),
    cutText = ProtoExpert.new("dunmallow.cut_text",
        "The text is longer than what is left: it counts as empty, and so do those behind it", MALFORMED, WARN),
    pathEnd = ProtoExpert.new("dunmallow.bad_path_end", "The path must end with one NUL, the payload's last byte",
        MALFORMED, ERROR),
    notCaptured = ProtoExpert.new("dunmallow.not_captured", "The packet is not whole in this capture", UNDECODED, NOTE),
    command = ProtoExpert.new("dunmallow.unknown_command", "Unknown command: it is reported and ignored", UNDECODED, WARN),
    sender = ProtoExpert.new("dunmallow.wrong_sender", "A command of the other side: it is reported and ignored",
        PROTOCOL, WARN),
    mode = ProtoExpert.new("dunmallow.unknown_mode", "Unknown mode", UNDECODED, WARN),
    state = ProtoExpert.new("dunmallow.unknown_state", "Unknown state", UNDECODED, WARN),
    surplus = ProtoExpert.new("dunmallow.surplus_bytes", "Bytes behind those that the command needs are ignored",
        PROTOCOL, NOTE),
}
proto.fields, proto.experts = field, problem

-- Readers of one field of a payload: reader(part, at) adds what stands at the offset `at` of `part.packet` to `part.tree`
-- and, in short, to `part.words` for the Info column. It returns the offset behind it, or nil when nothing can follow.
-- `part.whole` is false when the end of the packet was not captured.

-- A number, the low byte first: in payloads all are, unlike in the header. `inShort(value, item)` is the word for it.
local function number(protoField, bytes, inShort)
    return function(part, at)
        if at + bytes > part.packet:len() then return nil end
        local range = part.packet(at, bytes)
        table.insert(part.words, inShort(range:le_uint(), part.tree:add_le(protoField, range)))
        return at + bytes
    end
end

local function plain(format)
    return function(value) return format:format(value) end
end

local function named(names, what)
    return function(value, item)
        if not names[value] then item:add_proto_expert_info(problem[what]) end
        return names[value] or ("unknown %s %d"):format(what, value)
    end
end

local function reportedSerial(value, item)
    if value < SERIAL_NOT_KNOWN then return ("serial %d"):format(value) end
    item:append_text(" (not known)")
    return "serial ---"
end

local function addText(part, protoField, at, length)
    local range = part.packet(at, length)
    local words = range:raw():gsub("%c", "?")
    table.insert(part.words, words)
    return (part.tree:add_packet_field(protoField, range, ENC_UTF_8))
end

-- A length byte and so many bytes of text.
local function text(lengthField, textField)
    return function(part, at)
        if at >= part.packet:len() then return nil end
        local length = part.packet(at, 1):uint()
        local item = part.tree:add(lengthField, part.packet(at, 1))
        if at + 1 + length > part.packet:len() then
            if part.whole then item:add_proto_expert_info(problem.cutText) end
            return nil
        end
        if length > 0 then addText(part, textField, at + 1, length) end
        return at + 1 + length
    end
end

-- A text up to its NUL, which has to be the last byte.
local function path(protoField)
    return function(part, at)
        if at >= part.packet:len() then return nil end
        local bytes = part.packet(at):raw()
        local ending = bytes:find("\0", 1, true)
        local length = (ending or #bytes + 1) - 1
        local item = length > 0 and addText(part, protoField, at, length) or part.tree
        if part.whole and ending ~= #bytes then item:add_proto_expert_info(problem.pathEnd) end
        return at + length + 1
    end
end

local mode = number(field.mode, 1, named(MODES, "mode"))
local address = number(field.address, 1, plain("address %d"))
local value = number(field.value, 1, plain("%d"))

-- What stands in the payload of a command. A reader that meets the end of the payload ends the list.
local LAYOUTS = {
    CmdPing = { value },
    CmdConnectionInfo = {
        number(field.processId, 4, plain("process %d")), text(field.nameLength, field.name),
        text(field.versionLength, field.version), text(field.labelLength, field.label),
    },
    CmdStatus = {
        mode, number(field.state, 1, named(STATES, "state")), number(field.progress, 1, plain("%d %%")), address,
        number(field.serial, 4, reportedSerial),
    },
    CmdStatusRequest = {},
    CmdStatusReset = {},
    CmdByte = { value },
    CmdUpload = { mode, address, number(field.serial, 4, plain("serial %d")), path(field.path) },
}

-- What stands behind the header. Returns its text for the Info column.
local function dissectPayload(layout, part, at)
    for _, reader in ipairs(layout) do
        at = reader(part, at)
        if not at then break end
    end
    if at and at < part.packet:len() then
        part.tree:add(field.surplus, part.packet(at)):add_proto_expert_info(problem.surplus)
    end
    return table.concat(part.words, ", ")
end

-- The header, of which all 8 bytes are there. Returns the command's row or nil, its name, the payload offset and its item.
local function dissectHeader(packet, sender, tree)
    local command, offset = packet(4, 2):uint(), packet(6, 2):uint()
    local row = COMMANDS[command]
    local commandItem = tree:add(field.command, packet(4, 2))
    local offsetItem = tree:add(field.payloadOffset, packet(6, 2))
    if not row then commandItem:add_proto_expert_info(problem.command) end
    if row and not row.needs[sender] then commandItem:add_proto_expert_info(problem.sender) end
    if offset < HEADER_BYTES then offsetItem:add_proto_expert_info(problem.header) end
    local extraBytes = math.min(offset, packet:len()) - HEADER_BYTES
    if extraBytes > 0 and offset <= packet(0, 4):uint() then
        tree:add(field.extraHeader, packet(HEADER_BYTES, extraBytes))
    end
    return row, row and row.name or ("unknown command %d"):format(command), offset, offsetItem
end

-- The packet in `packet`, of which the end is missing when the capture has cut it. Returns its text for the Info column.
local function dissectPacket(packet, whole, sender, root)
    local tree = root:add(proto, packet)
    if not whole then tree:add_proto_expert_info(problem.notCaptured) end
    if packet:len() >= 4 then tree:add(field.length, packet(0, 4)) end
    if packet:len() < HEADER_BYTES then return "header not captured" end

    local row, name, offset, offsetItem = dissectHeader(packet, sender, tree)
    tree:append_text(", " .. name)
    if offset > packet(0, 4):uint() then
        offsetItem:add_proto_expert_info(problem.offset)
        return name .. " [payload outside]"
    end
    if not row then
        if offset < packet:len() then tree:add(field.payload, packet(offset)) end
        return name
    end
    local short = whole and packet:len() - offset < (row.needs[sender] or 0)
    if short then offsetItem:add_proto_expert_info(problem.short) end
    local words = dissectPayload(LAYOUTS[row.name], { packet = packet, whole = whole, tree = tree, words = {} }, offset)
    return name .. (words == "" and "" or ": " .. words) .. (short and " [payload too short]" or "")
end

-- Why the packet of this length that begins at `at` cannot be one, or nil. Bytes out of the middle of a packet may look
-- like a length for which one would wait long; so a packet is waited for only when the rest of its header may be one.
local function reasonAgainst(tvb, at, length, mayWait)
    if length < HEADER_BYTES then return problem.length end
    if length > proto.prefs.longest then return problem.tooLong end
    local left = tvb:len() - at
    if not mayWait or left < HEADER_BYTES or left >= length then return nil end
    local known = COMMANDS[tvb(at + 4, 2):uint()]
    return not known and tvb(at + 6, 2):uint() ~= HEADER_BYTES and problem.noHeader or nil
end

-- Nothing can be found again behind a wrong length: the rest of the segment is shown as it is. The next segment is tried
-- anew, so that a capture which begins within a packet becomes readable soon.
local function showLost(range, reason, root)
    local tree = root:add(proto, range)
    tree:add(field.length, range(0, 4)):add_proto_expert_info(reason)
    tree:add(field.lost, range)
    return reason == problem.noHeader and "wrong header" or "wrong length"
end

-- What TCP shall append before the rest from `at` on is looked at again.
local function waitFor(tvb, pinfo, at, length)
    local left = tvb:len() - at
    pinfo.desegment_offset = at
    pinfo.desegment_len = left < HEADER_BYTES and DESEGMENT_ONE_MORE_SEGMENT or length - left
end

-- The packets of a segment, or of several that TCP has put together. Returns their texts for the Info column.
local function dissectPackets(tvb, pinfo, root)
    local sender = pinfo.src_port == pinfo.match and "server" or "client"
    local mayWait = pinfo.can_desegment > 0
    local summaries, at = {}, 0
    while at < tvb:reported_len() do -- of which the capture may lack the end
        local left = tvb:len() - at
        local length = left >= 4 and tvb(at, 4):uint()
        local wrong = length and reasonAgainst(tvb, at, length, mayWait)
        local whole = length and not wrong and length <= left
        if mayWait and not wrong and not whole then
            waitFor(tvb, pinfo, at, length)
            break
        end
        local range = tvb(at, whole and length or left)
        summaries[#summaries + 1] = wrong and showLost(range, wrong, root) or dissectPacket(range, whole, sender, root)
        if not whole then break end
        at = at + length
    end
    return summaries
end

function proto.dissector(tvb, pinfo, root)
    local summaries = dissectPackets(tvb, pinfo, root)
    if #summaries == 0 then return end -- TCP says that the segment is a part of something
    pinfo.cols.protocol = "DUNMALLOW"
    pinfo.cols.info:clear() -- but for what an earlier call for the same segment, or TCP, has written
    local earlier = tostring(pinfo.cols.info)
    local border = (earlier == "" or earlier:find("%] $")) and "" or "; "
    pinfo.cols.info:append(border .. table.concat(summaries, "; "))
end

-- `Decode As` finds the protocol too, since it stands in the table of TCP ports.
local tcpPorts, ports = DissectorTable.get("tcp.port"), nil
local function listen()
    if ports then tcpPorts:remove(ports, proto) end
    ports = proto.prefs.ports
    tcpPorts:add(ports, proto)
end
proto.prefs_changed = listen
listen()
