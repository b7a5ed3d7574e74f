-- Codes, words, objects and sends: how script values become message words and answers come back.
local work = ...

-- FourCCs put the first character in the most significant byte.
zove.expect(zove.fc("Setu"), 0x53657475, "fc")
zove.expect(zove.fcstr(0x53657475), "Setu", "fcstr")
zove.expect(zove.fcstr(zove.fc("a b~")), "a b~", "fc and fcstr round trip")
local ok, err = pcall(zove.fc, "abc")
zove.expect(ok, false, "a three-character code")

-- A listener shows the words a send carries: nil and false pass 0, true 1, a four-character
-- string its code, integers as given; whatever it answers comes back as a 32-bit value.
local seen
local echo = zove.listen(nil, function(sel, ...)
  seen = {sel, ...}
  if sel == "Ffff" then return 0xFFFFFFFF end
  if sel == "Neg " then return -2 end
  return seen[2]
end)
zove.expect(echo:send("Echo", nil, true, false, "abcd", -5, 7), 0)
zove.expect({seen[1], seen[2], seen[3], seen[4], seen[5], seen[6], seen[7], seen[8]},
            {"Echo", 0, 1, 0, zove.fc("abcd"), -5, 7, 0}, "words received")
zove.expect(#seen, 13, "a listener always receives the selector and twelve words")
zove.expect(echo:send("Ffff"), -1, "a zero-extended 32-bit answer reads sign-extended")
zove.expect(echo:send("Neg "), -2)
ok, err = pcall(echo.send, echo, "Echo", "toolong")
zove.expect(ok, false)
assert(err:find("not a four%-character code"), err)
ok, err = pcall(echo.send, echo, "Echo", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13)
assert(not ok and err:find("at most 12"), err)
ok, err = pcall(echo.send, echo, "Echo", {})
assert(not ok and err:find("cannot be a message word"), err)

-- A listener that answers something that is no word leaves an error for the send.
local odd = zove.listen(nil, function() return {} end)
ok, err = pcall(odd.send, odd, "Odd ")
assert(not ok and err:find("listener answering 'Odd ': answered a table", 1, true), err)

-- Classes and objects.
local roo = zove.class("@roo")
assert(roo, "the root class")
zove.expect(zove.class("Zzzz"), nil, "an unknown class")
local obj = zove.new("@roo")
assert(obj:send("LkUp", "Setu") ~= 0, "an object answers Setu")
zove.expect(obj:send("LkUp", "Zzzz"), 0)
assert(roo:send("LkUp", "New ") ~= 0, "class objects answer sends too")
zove.expect(zove.object(zove.id(obj)), obj, "an object from its word")
zove.expect(zove.object(0), nil)
zove.expect(zove.object(zove.id(roo)), roo, "a class object from its word")
obj:send("Dspo")
ok, err = pcall(obj.send, obj, "Setu")
assert(not ok and err:find("not alive"), "a send to a disposed object is refused: " .. tostring(err))
ok, err = pcall(zove.object, zove.id(obj))
zove.expect(ok, false, "a dead object's word")
ok, err = pcall(zove.new, "Zzzz")
assert(not ok and err:find("no class 'Zzzz'"), err)

-- A cell receives what a handler writes; 32-bit results read as such even when only the low half
-- was written over an earlier value.
local store = zove.memstore(1)
zove.expect(store:send("TSIn", "Msgs", 1), 0)
local dl = store:send("TSDN", "Test", 8, 0)
store:send("TSVS", dl, "neg ", -7)
local cell = zove.word(-1)
zove.expect(store:send("TSVG", dl, "neg ", cell), 0)
zove.expect(cell.value, -7)
cell.value = 0
store:send("TSVS", dl, "pos ", 70000)
zove.expect(store:send("TSVG", dl, "pos ", cell), 0)
zove.expect(cell.value, 70000)
zove.expect(zove.peek(zove.id(cell)), 70000, "a cell's address is where the word lies")

-- Buffers, peek and poke reach the DL's data area: what is written through one is read through
-- the others.
local b = zove.buffer(8)
b:setu32(0, 0xDEADBEEF)
b:setu32(4, -2)
zove.expect({b:u32(0), b:u8(0), b:i16(4), #b}, {0xDEADBEEF, 0xEF, -2, 8})
store:send("TSWD", dl, b, 8)
local addr = store:send("TSDP", dl)
zove.expect(zove.peek(addr), -559038737, "peek reads the first data word")
zove.poke(addr + 4, 12345)
local back = zove.buffer(8)
store:send("TSRD", dl, back, 8)
zove.expect(back:u32(4), 12345, "poke wrote the second data word")
zove.expect(back.bytes:sub(1, 4), "\xEF\xBE\xAD\xDE")
ok, err = pcall(b.u32, b, 5)
assert(not ok and err:find("out of range"), err)
local init = zove.buffer(4, "\1\2")
zove.expect({init:u8(0), init:u8(1), init:u8(2)}, {1, 2, 0}, "initial bytes, then zeros")

-- expect names both values, and what was compared.
ok, err = pcall(zove.expect, {1, 2}, {1, 3}, "pair")
assert(not ok and err:find("pair: expected {1, 3}, got {1, 2}", 1, true), err)
