-- Shows the announcements of Kelta devices (UDP port 31416) in Wireshark and tshark.
--
--   tshark -X lua_script:wireshark/kelta.lua -i eth0 -f "udp port 31416"
--
-- For good, copy this file into the folder "Personal Lua Plugins" (Help > About Wireshark > Folders), or link it there: the
-- package upnpvelorn-tools has it as /usr/share/upnpvelorn/kelta.lua. Filters to begin with: kelta.uuid == "912345678",
-- kelta.ipv4 == 10.77.0.0/24, kelta.invalid.
--
-- A device with no interface to announce, or with several, sends text that is no valid JSON. So the text is read value by
-- value, and what a value means follows from the keys above it as far as they go, not from a complete tree.

local PORT = 31416
local LIVES = 3 -- a device is forgotten after this many times its expiration

local kelta = Proto("kelta", "Kelta Announcement")

local fields = {
    jsonrpc = ProtoField.string("kelta.jsonrpc", "JSON-RPC version"),
    method = ProtoField.string("kelta.method", "Method"),
    apiVersion = ProtoField.string("kelta.api_version", "API version"),
    name = ProtoField.string("kelta.name", "Name"),
    uuid = ProtoField.string("kelta.uuid", "Serial number (uuid)"),
    type = ProtoField.string("kelta.type", "Type"),
    familyType = ProtoField.string("kelta.family", "Family"),
    firmwareVersion = ProtoField.string("kelta.firmware", "Firmware version"),
    interface = ProtoField.string("kelta.interface", "Interface"),
    interfaceType = ProtoField.string("kelta.interface.type", "Interface type"),
    ipv4 = ProtoField.ipv4("kelta.ipv4", "IPv4 address"),
    netmask = ProtoField.string("kelta.netmask", "Netmask"),
    ipv6 = ProtoField.string("kelta.ipv6", "IPv6 address"),
    prefix = ProtoField.string("kelta.prefix", "Prefix length"),
    address = ProtoField.string("kelta.address", "Address of no known form"),
    configurationMethod = ProtoField.string("kelta.configuration", "Configuration method"),
    gateway = ProtoField.string("kelta.gateway", "Default gateway"),
    service = ProtoField.string("kelta.service", "Service"),
    port = ProtoField.string("kelta.service.port", "Port"),
    expiration = ProtoField.double("kelta.expiration", "Expiration (seconds)"),
    forgotten = ProtoField.double("kelta.forgotten", "Forgotten after (seconds)"),
    text = ProtoField.string("kelta.text", "Text"),
}
for _, field in pairs(fields) do
    table.insert(kelta.fields, field)
end

local experts = {
    invalid = ProtoExpert.new("kelta.invalid", "Not valid JSON", expert.group.MALFORMED, expert.severity.WARN),
    interfaces = ProtoExpert.new("kelta.interfaces", "Announces no interface, or several", expert.group.PROTOCOL,
        expert.severity.WARN),
    foreign = ProtoExpert.new("kelta.foreign", "Not an announcement", expert.group.UNDECODED, expert.severity.WARN),
    cut = ProtoExpert.new("kelta.cut", "Captured in part only", expert.group.UNDECODED, expert.severity.NOTE),
}
for _, one in pairs(experts) do
    table.insert(kelta.experts, one)
end

-- Reading JSON

local ESCAPES = { b = "\b", f = "\f", n = "\n", r = "\r", t = "\t" }

local function utf8(code)
    if code < 0x80 then
        return string.char(code)
    elseif code < 0x800 then
        return string.char(0xc0 + math.floor(code / 0x40), 0x80 + code % 0x40)
    elseif code < 0x10000 then
        return string.char(0xe0 + math.floor(code / 0x1000), 0x80 + math.floor(code / 0x40) % 0x40, 0x80 + code % 0x40)
    end
    return string.char(0xf0 + math.floor(code / 0x40000), 0x80 + math.floor(code / 0x1000) % 0x40,
        0x80 + math.floor(code / 0x40) % 0x40, 0x80 + code % 0x40)
end

local function unescaped(text)
    text = text:gsub("\\u([dD][89abAB]%x%x)\\u([dD][c-fC-F]%x%x)", function(high, low)
        return utf8(0x10000 + (tonumber(high, 16) - 0xd800) * 0x400 + tonumber(low, 16) - 0xdc00)
    end)
    text = text:gsub("\\u(%x%x%x%x)", function(digits)
        local code = tonumber(digits, 16)
        -- Half of a pair has no UTF-8 form, and a zero or a backslash would be taken for something else below.
        return (code >= 0xd800 and code < 0xe000 or code == 0) and "?" or code == 0x5c and "\\\\" or utf8(code)
    end)
    return (text:gsub("\\(.)", function(letter) return ESCAPES[letter] or letter end))
end

local function text_token(text, at)
    local last = text:find('["\\]', at + 1)
    while last and text:sub(last, last) == "\\" do
        last = text:find('["\\]', last + 2)
    end
    return last and "string" or "open", last or #text
end

-- The token that begins at `at`, and its last position: a bracket, comma or colon as itself, "string", "number" or "word".
-- A string that does not end is a token "open".
local function token(text, at)
    local first = text:sub(at, at)
    if first:find("[%[%]{},:]") then
        return first, at
    elseif first == '"' then
        return text_token(text, at)
    end
    local _, last = text:find("^-?%d[%d.eE+-]*", at)
    if last then
        return "number", last
    end
    _, last = text:find("^[^%s%[%]{},:\"]+", at)
    return "word", last or at
end

local WORDS = { ["true"] = true, ["false"] = true, ["null"] = true }
local CLOSES = { ["}"] = "{", ["]"] = "[" }

-- Reads one text. visit(keys, value, first, last) is called for every value that is neither object nor list, in the order
-- of the text, and enter(keys) for every beginning of an object. `keys` are those that lead to it from at most 8 levels, the
-- innermost first. `problem` says what is wrong with the text, and is nil when it is JSON.
local Reader = {}
Reader.__index = Reader

local function reader(text, visit, enter)
    return setmetatable({
        text = text, visit = visit, enter = enter,
        open = {}, -- the brackets that are open, from the outside inwards
        keys = {}, -- keys[i] is the key in open[i] whose value is being read, keys[0] one outside of everything
        wanted = "value",
    }, Reader)
end

function Reader:expect(at, what, ...)
    for _, wanted in ipairs({ ... }) do
        if self.wanted == wanted then
            return
        end
    end
    self:complain(what, at)
end

function Reader:complain(what, at)
    self.problem = self.problem or string.format("%s at byte %d", what, at - 1)
end

function Reader:path()
    local found = {}
    for i = #self.open, math.max(0, #self.open - 8), -1 do
        table.insert(found, self.keys[i])
    end
    return found
end

function Reader:value_is_over()
    self.keys[#self.open] = nil
    self.wanted = "comma"
end

function Reader:opening(kind, at)
    self:expect(at, "unexpected " .. kind, "value", "value or end")
    if kind == "{" then
        self.enter(self:path())
    end
    table.insert(self.open, kind)
    self.wanted = kind == "{" and "key or end" or "value or end"
end

function Reader:closing(kind, at)
    if self.open[#self.open] ~= CLOSES[kind] then
        self:complain(kind .. " closes nothing", at)
    end
    self:expect(at, "unexpected " .. kind, "comma", "key or end", "value or end")
    if #self.open > 0 then
        self.keys[#self.open] = nil
        table.remove(self.open)
    end
    self:value_is_over()
end

function Reader:comma(_, at)
    self:expect(at, "unexpected comma", "comma")
    if #self.open == 0 then
        self:complain("something follows", at)
    end
    self.wanted = self.open[#self.open] == "[" and "value" or "key"
end

function Reader:colon(_, at)
    self:expect(at, "unexpected colon", "colon")
    self.wanted = "value"
end

function Reader:key(kind, at, last)
    if kind ~= "string" then
        self:complain("no key", at)
    end
    self.keys[#self.open] = unescaped(self.text:sub(at + 1, last - 1))
    self.wanted = "colon"
end

function Reader:value(kind, at, last)
    self:expect(at, "unexpected value", "value", "value or end")
    local value = self.text:sub(at, last)
    if kind == "open" or kind == "word" and not WORDS[value] or kind == "number" and not tonumber(value) then
        self:complain("no value", at)
    end
    if kind == "string" or kind == "open" then
        value = unescaped(value:sub(2, kind == "string" and -2 or -1))
    end
    self.visit(self:path(), value, at, last)
    self:value_is_over()
end

local READ = {
    ["{"] = Reader.opening, ["["] = Reader.opening, ["}"] = Reader.closing, ["]"] = Reader.closing,
    [","] = Reader.comma, [":"] = Reader.colon,
}

function Reader:run()
    local at = self.text:find("%S")
    while at do
        local kind, last = token(self.text, at)
        local wants_key = self.wanted == "key" or self.wanted == "key or end"
        local act = READ[kind] or wants_key and Reader.key or Reader.value
        act(self, kind, at, last)
        at = self.text:find("%S", last + 1)
    end
    if #self.open > 0 or self.wanted ~= "comma" then
        self:complain("the text ends too early", #self.text + 1)
    end
end

-- Showing it

local IN_DEVICE = { name = true, uuid = true, type = true, familyType = true, firmwareVersion = true }
local ANYWHERE = { jsonrpc = true, method = true, apiVersion = true }

local function is_ipv4(text)
    local parts = { text:match("^(%d+)%.(%d+)%.(%d+)%.(%d+)$") }
    for _, part in ipairs(parts) do
        if #part > 3 or tonumber(part) > 255 then
            return false
        end
    end
    return #parts == 4
end

-- Adds the values of one announcement to the tree and remembers what the line in the packet list needs.
local function collector(buffer, tree)
    local self = { interfaces = 0, addresses = {}, device = {} }
    local group, service

    local function range(first, last)
        return buffer(first - 1, last - first + 1)
    end

    local function add_address(family, value, first, last)
        local at = group or tree
        if family == "ipv6" then
            at:add(fields.ipv6, range(first, last), value)
        elseif is_ipv4(value) then
            at:add(fields.ipv4, range(first, last), Address.ip(value))
        else
            at:add(fields.address, range(first, last), value)
        end
        table.insert(self.addresses, value)
    end

    local function in_interface(key, value, first, last)
        if key == "name" then
            self.interfaces = self.interfaces + 1
            group = tree:add(fields.interface, range(first, last), value)
        elseif key == "type" then
            (group or tree):add(fields.interfaceType, range(first, last), value)
        elseif key == "configurationMethod" then
            (group or tree):add(fields.configurationMethod, range(first, last), value)
        end
    end

    function self.enter(keys)
        if keys[1] == "services" then
            service = nil
        end
    end

    function self.visit(keys, value, first, last)
        local key, above = keys[1], keys[2]
        if above == "device" and IN_DEVICE[key] then
            self.device[key] = self.device[key] or value
            tree:add(fields[key], range(first, last), value)
        elseif above == "services" and key == "type" then
            service = tree:add(fields.service, range(first, last), value)
        elseif above == "services" and key == "port" then
            (service or tree):add(fields.port, range(first, last), value)
        elseif (above == "ipv4" or above == "ipv6") and key == "address" then
            add_address(above, value, first, last)
        elseif above == "ipv4" and key == "netmask" or above == "ipv6" and key == "prefix" then
            (group or tree):add(fields[key], range(first, last), value)
        elseif above == "defaultGateway" and (key == "ipv4Address" or key == "ipv6Address") then
            (group or tree):add(fields.gateway, range(first, last), value)
        elseif key == "expiration" and tonumber(value) then
            self.expiration = tonumber(value)
            tree:add(fields.expiration, range(first, last), self.expiration)
            tree:add(fields.forgotten, range(first, last), LIVES * self.expiration):set_generated()
        elseif ANYWHERE[key] then
            self[key] = value
            tree:add(fields[key], range(first, last), value)
        elseif key == "name" or key == "type" or key == "configurationMethod" then
            in_interface(key, value, first, last)
        end
    end

    return self
end

local function summary(found, problem)
    local device = found.device
    local text = string.format("%s %s %s", found.method or "?", device.name or "?", device.uuid or "?")
    if device.type or device.firmwareVersion then
        text = string.format("%s (%s %s)", text, device.type or "?", device.firmwareVersion or "?")
    end
    if #found.addresses > 0 then
        text = text .. " " .. table.concat(found.addresses, " ", 1, math.min(#found.addresses, 8))
    end
    if found.expiration then
        text = string.format("%s, counts %g s", text, found.expiration)
    end
    if found.interfaces ~= 1 then
        text = string.format("%s [%s]", text, found.interfaces == 0 and "no interface" or found.interfaces .. " interfaces")
    end
    return problem and text .. " [not valid JSON]" or text
end

function kelta.dissector(buffer, packet, root)
    local length = buffer:captured_len()
    packet.cols.protocol = "Kelta"
    if length == 0 then
        return 0
    end
    local tree = root:add(kelta, buffer(0, length))
    local text = buffer:raw(0, length)
    if length < buffer:reported_len() then
        tree:add_proto_expert_info(experts.cut)
    end
    if not text:find("^%s*{") then
        packet.cols.info = string.format("no announcement, %d bytes", buffer:reported_len())
        tree:add_proto_expert_info(experts.foreign)
        return length
    end
    local found = collector(buffer, tree)
    local reading = reader(text, found.visit, found.enter)
    reading:run()
    local problem = reading.problem
    tree:add(fields.text, buffer(0, length), text)
    if problem then
        tree:add_proto_expert_info(experts.invalid, "Not valid JSON: " .. problem)
    end
    if found.interfaces ~= 1 then
        tree:add_proto_expert_info(experts.interfaces)
    end
    local line = summary(found, problem)
    tree:append_text(": " .. line)
    packet.cols.info = line
    return length
end

DissectorTable.get("udp.port"):add(PORT, kelta)
