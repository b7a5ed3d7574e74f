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

-- Opening: the instance arrives in a result word; two openings share it, the last closing
-- disposes of it, and meanwhile the store counts the DL as held.
local note = store:send("TSDN", "Note", 0, module)
local result = zove.word()
zove.expect(dmd:send("PInO", note, result), 0)
local instance = zove.object(result.value)
zove.expect(dmd:send("PInG", note), zove.id(instance))
zove.expect(dmd:send("PInO", note, result), 0)
zove.expect(result.value, zove.id(instance), "one instance per DL")
zove.expect(store:send("TSTB", note), -809)
zove.expect(dmd:send("PInC", note), 0)
zove.expect(dmd:send("PInG", note), zove.id(instance))
zove.expect(dmd:send("PInC", note), 0)
zove.expect({dmd:send("PInG", note), dmd:send("PInB", note), store:send("TSTB", note)}, {0, 0, 0})
local ok = pcall(instance.send, instance, "Setu")
zove.expect(ok, false, "the instance was disposed of")
zove.expect(zove.asserts(), {})
zove.expect(dmd:send("PInC", note), 0)
local reports = zove.asserts()
zove.expect(#reports, 1, "closing a DL that is not open")
assert(reports[1]:match("^db:%d+$"), reports[1])

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
-- word) and then receives the request with (store, modeler, DL, the words).
local heard = {}
local responder
responder = zove.listen("NOTE", function(sel, ...)
  local w = {...}
  heard[#heard + 1] = sel
  if sel == "FdRs" then
    zove.expect({w[1], w[2], w[5], w[6], w[7], w[8]},
                {zove.id(store), zove.id(dmd), zove.fc("Ping"), note, 1, 2})
    zove.pokew(w[3], responder)
    return 0
  end
  zove.expect({w[1], w[2], w[3]}, {zove.id(store), zove.id(dmd), note})
  return w[4] * 10 + w[5]
end)
zove.expect(dmd:send("PmFR", note, "Ping", 1, 2), 12)
zove.expect(heard, {"FdRs", "Ping"})
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
pty:send("PGSN", note, name)
zove.expect(name.text, " ")
zove.expect(pty:send("PGAb"), 0x08000002)

-- The store's disposal disposes of its database objects.
store:send("Dspo")
ok = pcall(dmd.send, dmd, "SdRR")
zove.expect(ok, false, "the modeler went with its store")
