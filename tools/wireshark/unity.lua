-- Wireshark dissector for Unity messages: Modbus function 0x5A over Modbus/TCP.
--
-- Load it with `tshark -X lua_script:unity.lua` or copy it into the personal Lua
-- plugins folder (Help > About > Folders). The built-in Modbus/TCP dissector keeps
-- the MBAP header and reassembly; it hands the data of function 0x5A to this one
-- through its "modbus.data" table. Requests are recognised by destination port 502.
--
-- Replies carry no hint of what they answer, so each request is remembered by TCP
-- stream and transaction id; a reply decodes its payload by the matching request
-- (dictionary lists, per-item values). A reply whose request is not in the capture
-- is decoded from its own bytes as far as they tell.
--
-- Where the capture holds the dictionary download, read and write items carry the name
-- of the variable they address: block and offset matched to the variables table seen
-- earlier in the same TCP stream ("Motor1", or "Line+20" inside a variable).

local unity = Proto("unity", "Unity (Modbus function 0x5A)")

local MODBUS_PORT = 502
local UNITY_FUNCTION = 0x5A
local STATUS_OK, STATUS_ERROR = 0xFE, 0xFD
local FILE_HANDLE_MARKER = 0x054B8B7E -- table address of the driver's file-handle request
local VARIABLES_TABLE = 0xFFFF
local LIST_DATA_TYPES, LIST_DETAIL_OR_TABLE = 0x03, 0x02
local FORMAT_STRUCT, FORMAT_ARRAY, FORMAT_TABLE = 2, 4, 9
local PER_ELEMENT = 0x21

local functions = {
  [0x01] = "Initialise communication",
  [0x02] = "Read PLC identification",
  [0x03] = "Read project information",
  [0x04] = "Read PLC information",
  [0x07] = "Function 0x07 (identification step 11)",
  [0x20] = "Read memory block",
  [0x22] = "Read variables",
  [0x23] = "Write variables",
  [0x26] = "Read data dictionary",
}
local statuses = { [STATUS_OK] = "OK", [STATUS_ERROR] = "Error" }
local lists = {
  [LIST_DATA_TYPES] = "Data type list",
  [LIST_DETAIL_OR_TABLE] = "Type detail or variables table",
}
local formats = {
  [FORMAT_STRUCT] = "Structure detail",
  [FORMAT_ARRAY] = "Array detail",
  [FORMAT_TABLE] = "Variables table",
}
local codes = {
  [0] = "BOOL (1 byte)", [1] = "Byte", [2] = "Word", [3] = "Double word", [4] = "Long word",
  [16] = "Length code: bytes x count", [17] = "Length code: bytes x count",
  [18] = "Length code: words x count",
  [19] = "Length code: double words x count", [20] = "Length code: long words x count",
  [PER_ELEMENT] = "One element, length from its type", [255] = "No direct format",
}

local f = {
  pairing = ProtoField.uint8("unity.pairing", "Pairing byte", base.HEX),
  func = ProtoField.uint8("unity.function", "Function", base.HEX, functions),
  status = ProtoField.uint8("unity.status", "Status", base.HEX, statuses),
  error_code = ProtoField.uint8("unity.error_code", "Error code", base.HEX),
  request_frame = ProtoField.framenum("unity.request_frame", "Request in frame", base.NONE,
    frametype.REQUEST),
  response_frame = ProtoField.framenum("unity.response_frame", "Reply in frame", base.NONE,
    frametype.RESPONSE),
  params = ProtoField.bytes("unity.params", "Parameters"),
  payload = ProtoField.bytes("unity.payload", "Payload"),
  -- identification
  id_bytes = ProtoField.bytes("unity.plc.id_bytes", "Identification bytes"),
  type_len = ProtoField.uint8("unity.plc.type_length", "PLC type text length"),
  type_text = ProtoField.string("unity.plc.type", "PLC type"),
  id_tail = ProtoField.bytes("unity.plc.id_tail", "Bytes after the type text"),
  table_half = ProtoField.uint32("unity.plc.table_address_half", "Table address / 2 (M580)", base.HEX),
  project_param = ProtoField.uint8("unity.project.param", "Parameter", base.HEX),
  -- memory block
  mem_range = ProtoField.uint8("unity.mem.range", "Range", base.HEX),
  mem_block = ProtoField.uint16("unity.mem.block", "Block", base.HEX),
  mem_offset = ProtoField.uint32("unity.mem.offset", "Offset", base.HEX),
  mem_size = ProtoField.uint16("unity.mem.size", "Size", base.DEC),
  mem_data = ProtoField.bytes("unity.mem.data", "Data"),
  handle = ProtoField.uint32("unity.dict.handle", "Dictionary handle", base.HEX),
  handle_hi = ProtoField.uint32("unity.dict.handle_high", "Dictionary handle, second half", base.HEX),
  -- dictionary
  list = ProtoField.uint8("unity.dict.list", "List", base.HEX, lists),
  fixed = ProtoField.uint16("unity.dict.fixed", "Fixed word", base.HEX),
  continuation = ProtoField.uint32("unity.dict.continuation", "Continuation", base.HEX),
  detail_type = ProtoField.uint16("unity.dict.type_id", "Type id", base.DEC),
  member_start = ProtoField.uint16("unity.dict.member_start", "First member", base.DEC),
  browse_address = ProtoField.uint32("unity.dict.browse_address", "Browse address", base.DEC),
  reserved = ProtoField.bytes("unity.dict.reserved", "Not used"),
  format = ProtoField.uint8("unity.dict.format", "Record format", base.DEC, formats),
  next = ProtoField.uint32("unity.dict.next", "Next address", base.DEC),
  next_member = ProtoField.uint16("unity.dict.next_member", "Next member", base.DEC),
  count = ProtoField.uint16("unity.dict.count", "Record count", base.DEC),
  type_id = ProtoField.uint16("unity.type.id", "Type id", base.DEC),
  type_name = ProtoField.stringz("unity.type.name", "Type name"),
  var_type = ProtoField.uint16("unity.var.type_id", "Type id", base.DEC),
  var_block = ProtoField.uint16("unity.var.block", "Block", base.DEC),
  var_offset = ProtoField.uint32("unity.var.offset", "Offset", base.DEC),
  var_name = ProtoField.stringz("unity.var.name", "Name"),
  member_type = ProtoField.uint16("unity.member.type_id", "Type id", base.DEC),
  member_offset = ProtoField.uint32("unity.member.offset", "Offset", base.DEC),
  member_name = ProtoField.stringz("unity.member.name", "Name"),
  element_type = ProtoField.uint16("unity.array.element_type", "Element type id", base.DEC),
  dimensions = ProtoField.uint8("unity.array.dimensions", "Dimensions", base.DEC),
  low = ProtoField.int32("unity.array.low", "Low bound", base.DEC),
  high = ProtoField.int32("unity.array.high", "High bound", base.DEC),
  -- variables
  table_address = ProtoField.uint32("unity.table_address", "Table address", base.HEX),
  item_count = ProtoField.uint8("unity.item_count", "Item count", base.DEC),
  item = ProtoField.none("unity.item", "Item"),
  code = ProtoField.uint8("unity.item.code", "Code", base.HEX, codes),
  block = ProtoField.uint16("unity.item.block", "Block", base.DEC),
  marker = ProtoField.uint8("unity.item.marker", "Marker", base.HEX),
  address = ProtoField.uint32("unity.item.address", "Address", base.HEX),
  element_count = ProtoField.uint16("unity.item.count", "Count", base.DEC),
  value = ProtoField.bytes("unity.item.value", "Value"),
  variable = ProtoField.string("unity.item.variable", "Variable"),
  error_expected = ProtoField.bool("unity.error_expected", "Expected error"),
  values = ProtoField.bytes("unity.values", "Values"),
  write_result = ProtoField.uint8("unity.write_result", "Write result", base.DEC, { [1] = "Written" }),
}
local fields = {}
for _, v in pairs(f) do fields[#fields + 1] = v end
unity.fields = fields

local group, severity = expert.group, expert.severity
local ef_short = ProtoExpert.new("unity.short", "Message ends inside a field", group.MALFORMED,
  severity.ERROR)
local ef_split = ProtoExpert.new("unity.values_mismatch", "Value bytes do not match the request's items",
  group.PROTOCOL, severity.WARN)
local ef_error = ProtoExpert.new("unity.error_reply", "Error reply", group.RESPONSE_CODE, severity.NOTE)
local ef_internal = ProtoExpert.new("unity.internal", "Dissector failure", group.UNDECODED, severity.ERROR)
local ef_unmatched = ProtoExpert.new("unity.unmatched", "Request not in the capture", group.SEQUENCE,
  severity.CHAT)
-- The controller answers a detail request for a STRING type with an error: every
-- dictionary download has one, so it is not flagged as an error reply.
local ef_expected = ProtoExpert.new("unity.expected_error",
  "Expected error reply: a STRING type has no detail", group.RESPONSE_CODE, severity.CHAT)
unity.experts = { ef_short, ef_split, ef_error, ef_internal, ef_unmatched, ef_expected }

local modbus_func = Field.new("modbus.func_code")
local trans_id = Field.new("mbtcp.trans_id")
local tcp_stream = Field.new("tcp.stream")

-- Last value of a field in the packet: with several Modbus PDUs in one segment
-- the current PDU's value was added last.
local function last(field)
  local all = { field() }
  local v = all[#all]
  return v and v.value
end

-- Requests seen, by "stream:transaction" (filled on the first pass), and the
-- request and reply each frame was matched to (kept for later passes).
-- Per TCP stream, from its dictionary download: variables by block ({offset, name}) and
-- data type names by id. `stream` is the stream of the packet being dissected.
local pending, matched, replied = {}, {}, {}
local variables, type_names = {}, {}
local stream = 0
function unity.init()
  pending, matched, replied = {}, {}, {}
  variables, type_names = {}, {}
end

-- The variable at block:address in this stream: the one that starts nearest below it.
local function variable_at(block, address)
  local vars = variables[stream] and variables[stream][block]
  if not (vars and address) then return nil end
  local best
  for _, v in ipairs(vars) do
    if v.offset <= address and (not best or v.offset > best.offset) then best = v end
  end
  if not best then return nil end
  if best.offset == address then return best.name end
  return string.format("%s+%d", best.name, address - best.offset)
end

local function name_item(it, block, address)
  local name = variable_at(block, address)
  if name then
    it:add(f.variable, name):set_generated()
    it:append_text(" (" .. name .. ")")
  end
  return name
end

------------------------------------------------------------------------------
-- A bounds-checked cursor over the message: a field that does not fit marks
-- the message short once and every later read returns nil.

local Cursor = {}
Cursor.__index = Cursor

local function cursor(tvb, tree, pos)
  return setmetatable({ tvb = tvb, tree = tree, pos = pos or 0, ok = true }, Cursor)
end

function Cursor:left()
  return self.ok and self.tvb:len() - self.pos or 0
end

function Cursor:take(n)
  if not self.ok then return nil end
  if n <= 0 then return nil end
  if self.pos + n > self.tvb:len() then
    self.ok = false
    self.tree:add_proto_expert_info(ef_short)
    return nil
  end
  local r = self.tvb(self.pos, n)
  self.pos = self.pos + n
  return r
end

-- Adds a little-endian field of n bytes; returns its value (nil when short).
function Cursor:le(field, n, tree)
  local r = self:take(n)
  if not r then return nil end
  local v = r:le_uint()
  ;(tree or self.tree):add_le(field, r)
  return v
end

function Cursor:bytes(field, n, tree)
  local r = self:take(n)
  if r then (tree or self.tree):add(field, r) end
  return r
end

function Cursor:rest(field, tree)
  if self:left() > 0 then return self:bytes(field, self:left(), tree) end
end

-- Length of the NUL-terminated string at the cursor, NUL included (nil if none).
function Cursor:strlen()
  for i = self.pos, self.tvb:len() - 1 do
    if self.tvb(i, 1):uint() == 0 then return i - self.pos + 1 end
  end
  return nil
end

function Cursor:stringz(field, tree)
  local n = self:strlen()
  if not n then
    self:take(self.tvb:len() - self.pos + 1) -- marks short
    return nil
  end
  local r = self:take(n)
  ;(tree or self.tree):add(field, r)
  return r:stringz()
end

------------------------------------------------------------------------------
-- Requests. Each returns what its reply needs to know.

local function identification_request(c, fn)
  if fn == 0x03 and c:left() >= 1 then
    c:le(f.project_param, 1)
  else
    c:rest(f.params)
  end
  return {}
end

local function memory_request(c)
  local req = {}
  req.range = c:le(f.mem_range, 1)
  req.block = c:le(f.mem_block, 2)
  req.offset = c:le(f.mem_offset, 4)
  req.size = c:le(f.mem_size, 2)
  c:rest(f.params)
  return req
end

local function dictionary_request(c, pinfo)
  local req = { list = c:le(f.list, 1) }
  c:le(f.fixed, 2)
  c:le(f.handle, 4)
  if req.list == LIST_DATA_TYPES then
    local cont = c:le(f.continuation, 4)
    pinfo.cols.info:append(string.format(" data type list from %s", tostring(cont)))
  elseif req.list == LIST_DETAIL_OR_TABLE then
    req.type_id = c:le(f.detail_type, 2)
    if req.type_id == VARIABLES_TABLE then
      local from = c:le(f.browse_address, 4)
      pinfo.cols.info:append(string.format(" variables table from %s", tostring(from)))
    else
      local first = c:le(f.member_start, 2)
      c:bytes(f.reserved, 2)
      pinfo.cols.info:append(string.format(" detail of type %s from member %s", tostring(req.type_id),
        tostring(first)))
    end
  end
  c:rest(f.params)
  return req
end

-- The value bytes read as the types of their width, for a reader who knows the tag.
local function describe(r)
  local n = r:len()
  if n == 1 then return string.format(" (%d)", r:uint()) end
  if n == 2 then return string.format(" (INT %d, UINT %d)", r:le_int(), r:le_uint()) end
  if n == 4 then return string.format(" (DINT %d, REAL %g)", r:le_int(), r:le_float()) end
  if n == 8 then return string.format(" (LINT %s, LREAL %g)", tostring(r:le_int64()), r:le_float()) end
  local text = r:stringz()
  if #text > 0 and not text:find("[^%g ]") then return string.format(' ("%s")', text) end
  return ""
end

local element_width = { [0] = 1, [1] = 1, [2] = 2, [3] = 4, [4] = 8 }

local function is_length_code(code)
  return code >= 16 and code <= 20
end

-- Bytes of value an item with this code and count refers to (nil if unknown).
-- A length code is 16 plus a format code and counts elements of that width.
local function item_size(code, count)
  if code <= 4 then return element_width[code] end
  if code == PER_ELEMENT then return count or 1 end
  if is_length_code(code) then return element_width[code - 16] * (count or 1) end
  return nil
end

-- Read item: code, block, 0x01, address bits 8..23, [0x01 for code 0x21],
-- address bits 0..7, [count unless the code is a plain format or 0x21].
local function read_item(c, i)
  local start = c.pos
  local it = c.tree:add(f.item, c.tvb(c.pos, 0))
  it:set_text("Item " .. i)
  local code = c:le(f.code, 1, it)
  local block = c:le(f.block, 2, it)
  c:le(f.marker, 1, it)
  local addr_start = c.pos
  local mid = c:take(2)
  if code == PER_ELEMENT then c:le(f.marker, 1, it) end
  local low = c:take(1)
  local item = { code = code, count = 1 }
  if mid and low then
    item.address = mid:le_uint() * 256 + low:uint()
    it:add(f.address, c.tvb(addr_start, c.pos - addr_start), item.address)
  end
  if code and code ~= PER_ELEMENT and code > 4 then item.count = c:le(f.element_count, 2, it) end
  item.size = code and item_size(code, item.count)
  it:set_len(c.pos - start)
  it:append_text(string.format(": code 0x%02X, block %s, address 0x%06X, count %s", code or 0,
    tostring(block),
    item.address or 0, tostring(item.count)))
  item.variable = name_item(it, block, item.address)
  return item
end

-- Write item: code, block, address u32, [count when the message's first code is
-- 0x21 or a length code], value bytes.
local function write_item(c, i, first_code, value_len)
  local start = c.pos
  local it = c.tree:add(f.item, c.tvb(c.pos, 0))
  it:set_text("Item " .. i)
  local code = c:le(f.code, 1, it)
  local block = c:le(f.block, 2, it)
  local address = c:le(f.address, 4, it)
  local count = 1
  if first_code == PER_ELEMENT or is_length_code(first_code) then count = c:le(f.element_count, 2, it) end
  local value = value_len(code, count)
  if value and value > 0 then
    local r = c:take(value)
    if r then it:add(f.value, r):append_text(describe(r)) end
  end
  it:set_len(c.pos - start)
  it:append_text(string.format(": code 0x%02X, block %s, address 0x%06X, %d value bytes", code or 0,
    tostring(block),
    address or 0, value or 0))
  name_item(it, block, address)
end

local function variables_request(c, pinfo, fn)
  local req = { items = {} }
  req.table_address = c:le(f.table_address, 4)
  if req.table_address == FILE_HANDLE_MARKER then
    req.file_handle = true
    c.tree:add(f.table_address, c.tvb(2, 4)):append_text(" (file handle request)")
  end
  local n = c:le(f.item_count, 1) or 0
  pinfo.cols.info:append(string.format(" %d item%s", n, n == 1 and "" or "s"))
  if fn == 0x22 then
    for i = 1, n do
      if not c.ok then break end
      req.items[i] = read_item(c, i)
    end
  elseif n > 0 then
    -- Items of one write have one size; their value length is what is left over
    -- once the headers are known, shared equally.
    local first_code = c.pos < c.tvb:len() and c.tvb(c.pos, 1):uint() or 0
    local header = (first_code == PER_ELEMENT or is_length_code(first_code)) and 9 or 7
    local per_item = math.floor(c:left() / n)
    local function value_len(code, count)
      local by_code = code and item_size(code, count)
      if by_code and by_code * n + header * n == c.tvb:len() - 7 then return by_code end
      return per_item - header
    end
    for i = 1, n do
      if not c.ok then break end
      write_item(c, i, first_code, value_len)
    end
  end
  c:rest(f.params)
  return req
end

local function dissect_request(c, pinfo, fn)
  if fn == 0x20 then return memory_request(c) end
  if fn == 0x26 then return dictionary_request(c, pinfo) end
  if fn == 0x22 or fn == 0x23 then return variables_request(c, pinfo, fn) end
  return identification_request(c, fn)
end

------------------------------------------------------------------------------
-- Replies.

-- 0x02: the type text's length at message byte 24, the text from 25.
local function identification_reply(c, pinfo)
  c:bytes(f.id_bytes, 22)
  local n = c:le(f.type_len, 1)
  if n and n > 0 then
    local r = c:take(n)
    if r then
      c.tree:add(f.type_text, r)
      pinfo.cols.info:append(" \"" .. r:string() .. "\"")
    end
  end
  c:rest(f.id_tail)
end

-- 0x04: an M580 reports half its table address at message byte 18.
local function plc_information_reply(c)
  c:bytes(f.payload, 16)
  c:le(f.table_half, 4)
  c:rest(f.payload)
end

-- 0x20: range, size, then the bytes; block 0x30 from offset 0 holds the dictionary handle at bytes 5..12.
local function memory_reply(c, req)
  c:le(f.mem_range, 1)
  local size = c:le(f.mem_size, 2)
  local data_start = c.pos
  local data = c:rest(f.mem_data)
  if data and req and req.block == 0x30 and req.offset == 0 and data:len() >= 13 then
    c.tree:add_le(f.handle, c.tvb(data_start + 5, 4))
    c.tree:add_le(f.handle_hi, c.tvb(data_start + 9, 4))
  end
  return size
end

-- Data type list: continuation at [2..5], count at [6..7], five unused bytes,
-- records of type id, name and five unused bytes.
local function data_type_list_reply(c, pinfo)
  c:le(f.continuation, 4)
  local n = c:le(f.count, 2) or 0
  c:bytes(f.reserved, 5)
  for i = 1, n do
    if c:left() == 0 then break end
    local start = c.pos
    local rec = c.tree:add(unity, c.tvb(c.pos, 0), "Data type " .. i)
    local id = c:le(f.type_id, 2, rec)
    local name = c:stringz(f.type_name, rec)
    if id and name and not pinfo.visited then
      type_names[stream] = type_names[stream] or {}
      type_names[stream][id] = name
    end
    c:bytes(f.reserved, 5, rec)
    rec:set_len(c.pos - start)
    rec:append_text(string.format(": %s %s", tostring(id), name or "?"))
  end
  pinfo.cols.info:append(string.format(" %d data types", n))
end

-- Variables table: format 9, next u32, count, records of type, block, offset,
-- two unused bytes and the name.
local function variables_table_reply(c, pinfo)
  local next = c:le(f.next, 4)
  local n = c:le(f.count, 2) or 0
  for i = 1, n do
    if c:left() == 0 then break end
    local start = c.pos
    local rec = c.tree:add(unity, c.tvb(c.pos, 0), "Variable " .. i)
    local ty = c:le(f.var_type, 2, rec)
    local block = c:le(f.var_block, 2, rec)
    local offset = c:le(f.var_offset, 4, rec)
    c:bytes(f.reserved, 2, rec)
    local name = c:stringz(f.var_name, rec)
    if block and offset and name and not pinfo.visited then
      variables[stream] = variables[stream] or {}
      variables[stream][block] = variables[stream][block] or {}
      table.insert(variables[stream][block], { offset = offset, name = name })
    end
    rec:set_len(c.pos - start)
    rec:append_text(string.format(": %s type %s at %s:%s", name or "?", tostring(ty), tostring(block),
      tostring(offset)))
  end
  pinfo.cols.info:append(string.format(" %d variables, next %s", n, tostring(next)))
end

-- Structure detail: format 2, next member u16, two unused bytes, count, members
-- of type id, offset, zero padding and the name.
local function struct_reply(c, pinfo)
  local next = c:le(f.next_member, 2)
  c:bytes(f.reserved, 2)
  local n = c:le(f.count, 2) or 0
  for i = 1, n do
    if c:left() == 0 then break end
    local start = c.pos
    local rec = c.tree:add(unity, c.tvb(c.pos, 0), "Member " .. i)
    local ty = c:le(f.member_type, 2, rec)
    local offset = c:le(f.member_offset, 4, rec)
    local pad = 0
    while c.pos + pad < c.tvb:len() and c.tvb(c.pos + pad, 1):uint() == 0 do pad = pad + 1 end
    if pad > 0 then c:bytes(f.reserved, pad, rec) end
    local name = c:stringz(f.member_name, rec)
    rec:set_len(c.pos - start)
    rec:append_text(string.format(": %s type %s at +%s", name or "?", tostring(ty), tostring(offset)))
  end
  pinfo.cols.info:append(string.format(" structure, %d members, next %s", n, tostring(next)))
end

-- Array detail: format 4, element type, dimension count, low and high bound per dimension.
local function array_reply(c, pinfo)
  local elem = c:le(f.element_type, 2)
  local d = c:le(f.dimensions, 1) or 0
  local shape = {}
  for i = 1, d do
    if c:left() == 0 then break end
    local start = c.pos
    local rec = c.tree:add(unity, c.tvb(c.pos, 0), "Dimension " .. i)
    local lo = c:take(4)
    local hi = c:take(4)
    if not (lo and hi) then break end
    rec:add_le(f.low, lo)
    rec:add_le(f.high, hi)
    rec:set_len(c.pos - start)
    rec:append_text(string.format(": %d..%d", lo:le_int(), hi:le_int()))
    shape[#shape + 1] = string.format("%d..%d", lo:le_int(), hi:le_int())
  end
  pinfo.cols.info:append(string.format(" array of type %s [%s]", tostring(elem), table.concat(shape, ",")))
end

local function dictionary_reply(c, pinfo, req)
  -- What was asked, so that a filter on the list or type id finds the replies too.
  if req and req.list then c.tree:add(f.list, req.list):set_generated() end
  if req and req.type_id then c.tree:add(f.detail_type, req.type_id):set_generated() end
  if req and req.list == LIST_DATA_TYPES then return data_type_list_reply(c, pinfo) end
  local fmt = c.tvb:len() > 2 and c.tvb(2, 1):uint() or nil
  if not (fmt == FORMAT_TABLE or fmt == FORMAT_STRUCT or fmt == FORMAT_ARRAY) then
    c:rest(f.payload)
    return
  end
  c:le(f.format, 1)
  if fmt == FORMAT_TABLE then return variables_table_reply(c, pinfo) end
  if fmt == FORMAT_STRUCT then return struct_reply(c, pinfo) end
  return array_reply(c, pinfo)
end

-- Read reply: the items' values one after the other, in request order.
local function read_reply(c, pinfo, req)
  if req and req.file_handle then
    c:bytes(f.payload, 6)
    c:le(f.table_address, 4)
    c:rest(f.payload)
    return
  end
  if not (req and req.items and #req.items > 0) then
    c:rest(f.values)
    return
  end
  local total = 0
  for _, item in ipairs(req.items) do total = total + (item.size or 0) end
  if total ~= c:left() then c.tree:add_proto_expert_info(ef_split) end
  for i, item in ipairs(req.items) do
    local n = math.min(item.size or c:left(), c:left())
    if n <= 0 then break end
    local r = c:take(n)
    local it = c.tree:add(f.value, r)
    it:prepend_text("Item " .. i .. (item.variable and " (" .. item.variable .. ")" or "") .. " ")
    it:append_text(describe(r))
  end
  c:rest(f.values)
  pinfo.cols.info:append(string.format(" %d values", #req.items))
end

local function dissect_reply(c, pinfo, fn, req)
  local status = c:le(f.status, 1)
  if status ~= STATUS_OK then
    local asked = req and req.list == LIST_DETAIL_OR_TABLE and req.type_id ~= VARIABLES_TABLE and
        type_names[stream] and type_names[stream][req.type_id]
    if asked and asked:find("^STRING") then
      c.tree:add(f.error_expected, true):set_generated()
      c.tree:add_proto_expert_info(ef_expected)
    else
      c.tree:add_proto_expert_info(ef_error)
    end
    c:le(f.error_code, 1)
    c:rest(f.payload)
    pinfo.cols.info:append(" error")
    return
  end
  if not fn then return c:rest(f.payload) end
  if fn == 0x02 then return identification_reply(c, pinfo) end
  if fn == 0x04 then return plc_information_reply(c) end
  if fn == 0x20 then return memory_reply(c, req) end
  if fn == 0x26 then return dictionary_reply(c, pinfo, req) end
  if fn == 0x22 then return read_reply(c, pinfo, req) end
  if fn == 0x23 then
    local result = c:le(f.write_result, 1)
    c:rest(f.payload)
    pinfo.cols.info:append(result == 1 and " written" or " not written")
    return
  end
  c:rest(f.payload)
end

------------------------------------------------------------------------------

local function is_request(tvb, pinfo)
  if pinfo.dst_port == MODBUS_PORT then return true end
  if pinfo.src_port == MODBUS_PORT then return false end
  local b = tvb:len() > 1 and tvb(1, 1):uint() or 0
  return b ~= STATUS_OK and b ~= STATUS_ERROR
end

local function dissect(tvb, pinfo, tree)
  local tid = last(trans_id) or 0
  stream = last(tcp_stream) or 0
  local key = tostring(stream) .. ":" .. tid
  local here = pinfo.number .. ":" .. tid
  local request = is_request(tvb, pinfo)
  local c = cursor(tvb, tree)
  c:le(f.pairing, 1)
  if request then
    local fn = c:le(f.func, 1)
    tree:append_text(", request: " .. (functions[fn] or string.format("unknown function 0x%02X", fn or 0)))
    pinfo.cols.info:append(" | Unity " .. (functions[fn] or string.format("0x%02X", fn or 0)))
    local req = fn and dissect_request(c, pinfo, fn) or {}
    req.fn, req.frame = fn, pinfo.number
    if not pinfo.visited then pending[key] = req end
    if replied[here] then tree:add(f.response_frame, replied[here]) end
  else
    if not pinfo.visited and pending[key] then
      matched[here] = pending[key]
      replied[pending[key].frame .. ":" .. tid] = pinfo.number
    end
    local req = matched[here]
    local fn = req and req.fn
    if req then
      tree:add(f.request_frame, req.frame)
      local fi = tree:add(f.func, fn)
      fi:set_generated()
    else
      tree:add_proto_expert_info(ef_unmatched)
    end
    tree:append_text(", reply: " .. (functions[fn] or "function unknown"))
    local name = fn and (functions[fn] or string.format("0x%02X", fn))
    pinfo.cols.info:append(" | Unity reply" .. (name and (": " .. name) or ""))
    dissect_reply(c, pinfo, fn, req)
  end
end

function unity.dissector(tvb, pinfo, parent)
  if last(modbus_func) ~= UNITY_FUNCTION then return 0 end
  pinfo.cols.protocol:set("Unity")
  local tree = parent:add(unity, tvb())
  local ok, err = pcall(dissect, tvb, pinfo, tree)
  if not ok then
    tree:add_proto_expert_info(ef_internal, "Dissector failure: " .. tostring(err))
  end
  return tvb:len()
end

DissectorTable.get("modbus.data"):add("data", unity)
