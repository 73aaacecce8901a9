-- Wireshark dissector of the discovery protocol (docs/protocol.md). Filters: quorvio, quorvio.malformed, quorvio.serial ...
-- Malformed is what libquorvio ignores: a datagram that is not of the protocol, or a payload that its opcode does not have.

local opcodes = {
  [0x01] = "Get Configuration",
  [0x02] = "Set Configuration",
  [0x03] = "Reset Configuration",
  [0x04] = "Set Device Info",
  [0x21] = "Discover Request",
  [0x81] = "Result",
  [0x82] = "Configuration",
  [0xA1] = "Discover Reply",
  [0xA2] = "Discover Inform",
}

local results = {
  [0] = "Success",
  [1] = "UnknownCommand",
  [19] = "InvalidParameter",
  [31] = "PermissionDenied",
  [32] = "ProtocolVersionNotSupported",
  [37] = "CommandNotProcessable",
  [32765] = "FeatureNotSupported",
  [32766] = "FeatureNotImplemented",
  [32767] = "Other",
}

local START, MAGIC, ANY_TYPE, HEADER, LONGEST_TEXT = 0xC2, 0x514E4450, 0xFFFFFFFF, 96, 63

local quorvio = Proto("quorvio", "Quorvio Device Discovery")

local field = {
  start = ProtoField.uint8("quorvio.start", "Start byte", base.HEX),
  length = ProtoField.uint16("quorvio.length", "Bytes that follow"),
  opcode = ProtoField.uint8("quorvio.opcode", "Opcode", base.HEX, opcodes),
  magic = ProtoField.uint32("quorvio.magic", "Magic", base.HEX),
  version = ProtoField.uint32("quorvio.version", "Version"),
  type = ProtoField.uint32("quorvio.type", "Device type", base.DEC_HEX),
  serial = ProtoField.string("quorvio.serial", "Serial number"),
  token = ProtoField.guid("quorvio.token", "Token"),
  result = ProtoField.uint16("quorvio.result", "Result", base.DEC, results),
  dhcp = ProtoField.bool("quorvio.dhcp", "DHCP"),
  address = ProtoField.ipv4("quorvio.address", "Address"),
  gateway = ProtoField.ipv4("quorvio.gateway", "Gateway"),
  mask = ProtoField.ipv4("quorvio.mask", "Subnet mask"),
  protocol = ProtoField.uint8("quorvio.protocol", "Protocol id", base.HEX),
  available = ProtoField.bool("quorvio.available", "Available"),
  port = ProtoField.uint16("quorvio.port", "TCP port"),
  info_length = ProtoField.uint8("quorvio.info_length", "Info length"),
  info = ProtoField.string("quorvio.info", "Info"),
}
quorvio.fields = field

local malformed = ProtoExpert.new("quorvio.malformed", "Malformed: ignored by receivers",
                                  expert.group.MALFORMED, expert.severity.ERROR)
quorvio.experts = { malformed }

-- A text ends at its first zero byte.
local function add_text(tree, text_field, range)
  local text = range:raw():match("^[^\0]*")
  tree:add(text_field, range, text)
  return text
end

-- Readers of payloads: their text, as the library's own log has it, or nothing when the payload is not the opcode's.

local function read_result(payload, tree)
  if payload:len() < 2 then return end
  tree:add_le(field.result, payload(0, 2))
  return "ResultCode: " .. (results[payload(0, 2):le_uint()] or "Unknown")
end

local function read_configuration(payload, tree)
  if payload:len() < 13 then return end
  local dhcp, address, gateway, mask = payload(0, 1), payload(1, 4), payload(5, 4), payload(9, 4)
  local on = dhcp:uint() ~= 0
  tree:add(field.dhcp, dhcp, on)
  tree:add(field.address, address)
  tree:add(field.gateway, gateway)
  tree:add(field.mask, mask)
  return string.format("IP: %s, Gateway: %s, SubnetMask: %s, DHCP: %s", address:ipv4(), gateway:ipv4(), mask:ipv4(),
                       on and "Enabled" or "Disabled")
end

-- A length, that many bytes, and a zero byte that must be present.
local function read_info(payload, tree)
  if payload:len() < 2 then return end
  local length = payload(0, 1):uint()
  if length > LONGEST_TEXT or payload:len() < length + 2 then return end
  tree:add(field.info_length, payload(0, 1))
  return add_text(tree, field.info, payload(1, length))
end

local function read_device_info(payload, tree)
  local info = read_info(payload, tree)
  return info and 'Device Info: "' .. info .. '"'
end

local function read_device(payload, tree)
  if payload:len() < 6 then return end
  local protocol, available, port = payload(0, 1), payload(1, 1), payload(2, 2)
  local free = available:uint() ~= 0
  tree:add(field.protocol, protocol)
  tree:add(field.available, available, free)
  tree:add_le(field.port, port)
  local info = read_info(payload(4), tree)
  return info and string.format("ProtocolId: 0x%x, Port: %d, Available: %s, Info: ", protocol:uint(), port:le_uint(),
                                free and "Yes" or "No") .. info
end

local readers = {
  [0x02] = read_configuration,
  [0x04] = read_device_info,
  [0x81] = read_result,
  [0x82] = read_configuration,
  [0xA1] = read_device,
  [0xA2] = read_device,
}

-- Why a datagram is not of the protocol, or nothing.
local function fault_of(datagram)
  local size = datagram:len()
  if size < HEADER then return "shorter than the header" end
  if size % 4 ~= 0 then return "not a multiple of 4 bytes" end
  if datagram(0, 1):uint() ~= START then return "wrong start byte" end
  if datagram(1, 2):le_uint() ~= size - 3 then return "wrong length" end
  if datagram(4, 4):le_uint() ~= MAGIC then return "wrong magic" end
end

local function mark(tree, pinfo, reason)
  tree:add_proto_expert_info(malformed, "Malformed: " .. reason)
  pinfo.cols.info:append("[Malformed: " .. reason .. "]")
end

local function add_header(datagram, tree)
  tree:add(field.start, datagram(0, 1))
  tree:add_le(field.length, datagram(1, 2))
  tree:add(field.opcode, datagram(3, 1))
  tree:add_le(field.magic, datagram(4, 4))
  tree:add_le(field.version, datagram(8, 4))
  local device_type = tree:add_le(field.type, datagram(12, 4))
  if datagram(12, 4):le_uint() == ANY_TYPE then device_type:append_text(", any") end
  local serial = add_text(tree, field.serial, datagram(16, LONGEST_TEXT))
  tree:add(field.token, datagram(80, 16))
  return serial
end

function quorvio.dissector(datagram, pinfo, tree)
  pinfo.private.quorvio = "seen"
  pinfo.cols.protocol = "Quorvio"
  pinfo.cols.info = ""
  local subtree = tree:add(quorvio, datagram())
  if datagram:captured_len() < datagram:reported_len() then
    pinfo.cols.info = "cut short by the capture"
    return
  end
  local fault = fault_of(datagram)
  if fault then return mark(subtree, pinfo, fault) end

  local opcode = datagram(3, 1):uint()
  local serial = add_header(datagram, subtree)
  local name = opcodes[opcode] or "Unknown"
  local summary = name .. ", " .. (serial == "" and "any device" or serial)
  subtree:append_text(", " .. summary)
  pinfo.cols.info = summary
  local read = readers[opcode]
  if not read then return end
  pinfo.cols.info:append(", ")
  local content = read(datagram(HEADER), subtree)
  if not content then return mark(subtree, pinfo, "bad payload") end
  pinfo.cols.info:append(content)
end

-- An empty datagram reaches no dissector of a port, so whoever sends one would go unnoticed.
local empty = Proto("quorvio_empty", "Quorvio Device Discovery, empty datagrams")
local UDP = 3

function empty.dissector(_, pinfo, tree)
  local port = pinfo.dst_port
  if port ~= 65110 and port ~= 65111 or pinfo.port_type ~= UDP or pinfo.private.quorvio then return end
  pinfo.cols.protocol = "Quorvio"
  pinfo.cols.info = ""
  mark(tree:add(quorvio), pinfo, "empty")
end

register_postdissector(empty)
DissectorTable.get("udp.port"):add("65110-65111", quorvio)
