-- The integrity check from a script: a damaged DL is reported through the log and the assertions.
local store = zove.memstore(1)
zove.expect(store:send("TSIn", "Coll", 1), 0)
zove.expect(store:send("TSCk"), 1, "a sound store")

-- A key byte outside 32..126 fails the DL check: TSCk answers -802, the log names the DL and the
-- assertion names the store's source.
local bad = store:send("TSDN", "Bad ", 0, 0)
store:send("TSVS", bad, "good", 1)
store:send("TSHS", 1, "bad ", bad)
zove.log()
zove.asserts()
local items = store:send("TSDP", bad)  -- no data area: the first item follows at once
zove.poke(items + 8, 0x80414141)
zove.expect(store:send("TSCk"), -802)
local log = table.concat(zove.log(), "\n")
assert(log:find("zoveCheckDL: DL " .. bad .. " key", 1, true), log)
local asserts = zove.asserts()
assert(#asserts >= 1 and asserts[1]:match("^zove:%d+$"), table.concat(asserts, " "))
zove.expect(zove.asserts(), {}, "asserts() clears what it returns")
zove.expect(store:send("TSEC"), -802, "the store is faulted for good")
zove.expect(store:send("TSGC"), -802)
