-- Database objects driven as another module drives them: a modeler joins a store, opens and
-- closes a stored object, forwards requests to whoever answers for its module; the property
-- type names DLs. Listeners stand in for the module's responder and for a controller.

-- An object word is pointer-wide: peekw and pokew move a whole one, peek and poke 32 bits.
zove.expect(zove.wordsize, 8)
local cell = zove.word()
zove.pokew(cell, -5)
zove.expect(zove.peekw(cell), -5)
zove.expect(cell.value, -5)

-- The store's notices go to its own channel, which a database object joins in Setu.
local store = zove.memstore(1)
zove.expect(store:send("TSIn", store, 1), 0)
zove.pokew(cell, store)
zove.expect(zove.peekw(cell), zove.id(store), "a whole object word")

-- Joining: module NOTE gets its DL and the modeler registers as its controller.
local dmd = zove.new("@DMD")
zove.expect(dmd:send("Setu", store, "NOTE", 4), 0, "TSAM's answer")
local module = dmd:send("SdRR")
zove.expect(store:send("TSDM", "NOTE"), module)
zove.expect(store:send("TSSD", module), 4)
zove.expect(store:send("TSGM", "NOTE"), zove.id(dmd))
zove.expect({dmd:send("SdMS"), dmd:send("PGTy")}, {zove.fc("NOTE"), zove.id(store)})

-- Opening: the instance arrives in a result word. (Open counting, the store's hold, failures and
-- threads are the C++ tests' part: tests/db.)
local note = store:send("TSDN", "Note", 0, module)
local result = zove.word()
zove.expect(dmd:send("PInO", note, result), 0)
zove.expect(dmd:send("PInG", note), result.value)
zove.expect(dmd:send("PInC", note), 0)

-- The provider manager: kept until it withdraws, and only then.
local manager = zove.listen(nil, function() return 0 end)
local other = zove.listen(nil, function() return 0 end)
zove.expect(dmd:send("PmSt", store, manager), zove.id(manager))
zove.expect(dmd:send("PmEd", other), zove.id(other))
zove.expect(dmd:send("PmGP"), zove.id(manager))
dmd:send("PmEd", manager)
zove.expect(dmd:send("PmGP"), 0)

-- Forwarding: with nobody on the module's channel the answer is -833 and nothing is sent.
zove.expect(dmd:send("PmFR", note, "Ping", 1, 2), -833)
-- A responder names itself in the responder word it is handed (pokew: an object is a whole
-- word) and then receives the request with (store, modeler, DL, the words). A message has twelve
-- words: FdRs carries the first six further words, the request the first nine.
local heard = {}
local responder
responder = zove.listen("NOTE", function(sel, ...)
  heard[#heard + 1] = {sel, ...}
  if sel == "FdRs" then zove.pokew(heard[#heard][4], responder) end
  return sel == "Ping" and 77 or 0
end)
zove.expect(dmd:send("PmFR", note, "Ping", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10), 77)
zove.expect(#heard, 2)
local fdrs, ping = heard[1], heard[2]
zove.expect({fdrs[1], fdrs[2], fdrs[3], fdrs[6], fdrs[7]},
            {"FdRs", zove.id(store), zove.id(dmd), zove.fc("Ping"), note})
zove.expect({table.unpack(fdrs, 8)}, {1, 2, 3, 4, 5, 6})
zove.expect(ping, {"Ping", zove.id(store), zove.id(dmd), note, 1, 2, 3, 4, 5, 6, 7, 8, 9})
zove.unlisten(responder)

-- A listener that answers only FdRs: it can name itself, but a request it does not answer
-- reaches nobody (0), and LkUp says which selectors it answers.
local picky
picky = zove.listen("NOTE", function(sel, st, modeler, resp)
  zove.pokew(resp, picky)
  return 0
end, {answers = {"FdRs"}})
zove.expect({picky:send("LkUp", "FdRs"), picky:send("LkUp", "Ping"), picky:send("LkUp", "Dspo")},
            {1, 0, 1})
zove.expect(dmd:send("PmFR", note, "Ping", 1, 2), 0)
zove.unlisten(picky)

-- A controller that answers PGNm but not PGSN: whoever names DLs falls back to PGNm for it.
local named = zove.listen(nil, function() return 0 end, {answers = {"PGNm", "PGAb"}})
zove.expect({named:send("LkUp", "PGNm"), named:send("LkUp", "PGSN")}, {1, 0})
zove.expect(named:send("PGSN", note, zove.string()), 0, "declined: nothing answers")

-- A listener as a module's controller writes an object into a result word: TSND forwards PInO
-- (DL, result) to the controller of the DL's module.
local ctlModule = store:send("TSNM", "LSN1", 0)
local opened = zove.new("@Ins")
local controller = zove.listen(nil, function(sel, dl, resultWord)
  if sel == "PInO" then zove.pokew(resultWord, opened) end
  return 0
end)
zove.expect(store:send("TSRM", "LSN1", controller), 0)
local owned = store:send("TSDN", "Item", 0, ctlModule)
store:send("TSHS", ctlModule, "item", owned)
result.value = 0
zove.expect(store:send("TSND", "PInO", owned, result), 0)
zove.expect(result.value, zove.id(opened))

-- Names: an object DL by its uType and number, a module (controller) DL by its uType.
local pty = zove.new("@PTY")
zove.expect(pty:send("Setu", store), zove.id(store))
local name = zove.string("replaced")
pty:send("PGNm", note, name)
zove.expect(name.text, "Object <Note=" .. note .. ">")
pty:send("PGNm", module, name)
zove.expect(name.text, "Controller <NOTE>")
pty:send("PGNm", store:send("TSDN", "Data", 0, 0), name)
zove.expect(name.text, "Controller <Data>", "no owner: named as a controller's DL")
for _, dl in ipairs({note, module, 1}) do
  name.text = "x"
  pty:send("PGSN", dl, name)
  zove.expect(name.text, " ")
end
zove.expect(pty:send("PGAb"), 0x08000002)
-- A number that names no DL: the store asserts for both questions. No string: the property
-- type asserts.
zove.asserts()
pty:send("PGNm", 999, name)
zove.expect(name.text, "Controller <\\x00\\x00\\x00\\x00>")
zove.expect(pty:send("PGNm", note, nil), 0)
local sources = {}
for i, r in ipairs(zove.asserts()) do sources[i] = r:match("^(%a+):") end
zove.expect(sources, {"zove", "zove", "db"})

-- The store's disposal disposes of its database objects.
store:send("Dspo")
local ok = pcall(dmd.send, dmd, "SdRR")
zove.expect(ok, false, "the modeler went with its store")
