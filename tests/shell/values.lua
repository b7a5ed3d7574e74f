-- Foundation values through the store: strings, dates, memory blocks and lists keep their
-- content across a write and a read; the clock can be fixed.
local store = zove.memstore(1)
zove.expect(store:send("TSIn", "Vals", 1), 0)
local dl = store:send("TSDN", "Vals", 0, 0)
store:send("TSHS", 1, "vals", dl)

-- Strings are UTF-8 on the Lua side.
local s = zove.string("Grüße, 世界")
store:send("TSSs", dl, "Name", s)
local back = zove.string("old text")
zove.expect(store:send("TSSg", dl, "Name", back), 0)
zove.expect(back.text, "Grüße, 世界")
back.text = "changed"
zove.expect(tostring(back), "changed")

-- Dates: all seven fields survive the store; the default date is its own value.
local d = zove.date(2024, 2, 29, 23, 59, 58, 999)
zove.expect({d:get()}, {2024, 2, 29, 23, 59, 58, 999})
zove.expect(tostring(d), "2024-02-29 23:59:58.999")
store:send("TDtS", dl, "When", d)
local read = zove.date()
zove.expect(read.isdefault, true)
zove.expect(store:send("TDtG", dl, "When", read), 0)
zove.expect(read, d, "the date read back")
zove.expect(read.isdefault, false)
read:set(2025, 1, 1)
zove.expect({read:get()}, {2025, 1, 1, 0, 0, 0, 0}, "missing fields are 0")
read:set()
zove.expect(read.isdefault, true, "set without fields gives the default date")
assert(zove.date(2020, 1, 1) < zove.date(2020, 1, 2), "dates order")

-- A fixed "now" is what SetToCurrent gives until it is released.
zove.setnow(zove.date(2030, 6, 15, 12, 0, 0, 0))
local now = zove.date()
now:setcurrent()
zove.expect(tostring(now), "2030-06-15 12:00:00.000")
zove.setnow(nil)
now:setcurrent()
assert(tostring(now) ~= "2030-06-15 12:00:00.000", "the clock again")

-- Memory blocks carry any bytes, zeros included.
local bytes = "\0\1\2\255zove\0"
local m = zove.memory(bytes)
zove.expect(#m, #bytes)
store:send("TSBF", dl, "Blob", m)
local out = zove.memory()
zove.expect(store:send("TSBT", dl, "Blob", out), 0)
zove.expect(out.bytes, bytes)
zove.expect(store:send("TSBz", dl, "Blob"), #bytes, "the blob's size")
out.bytes = ""
zove.expect(#out, 0)

-- Lists of words.
local l = zove.list({3, -1, "abcd"})
zove.expect(l:items(), {3, -1, zove.fc("abcd")})
zove.expect(#l, 3)
l:set({})
zove.expect(l:items(), {})
-- A list of DLs written whole through a memory block comes back in order.
local a = store:send("TSDN", "Elem", 0, 0)
local b = store:send("TSDN", "Elem", 0, 0)
local words = zove.buffer(8)
words:setu32(0, a)
words:setu32(4, b)
store:send("TSLf", dl, "Elms", zove.memory(words.bytes))
zove.expect(store:send("TSLC", dl, "Elms"), 2)
zove.expect({store:send("TSLE", dl, "Elms", 0), store:send("TSLE", dl, "Elms", 1)}, {a, b})

-- Queued dialog answers that nothing asked for stay queued; nothing was asked or shown.
zove.answer(-1203, "yes")
zove.answer(-1201)
zove.expect(zove.queries(), {})
zove.expect(zove.alerts(), {})
local ok = pcall(zove.answer, 5, "x")
zove.expect(ok, false, "an answer code other than confirmed or cancelled")
