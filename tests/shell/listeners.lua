-- Listeners: hearing a store's notices on its channel, answering as a controller, and errors
-- raised inside a listener.
local work = ...
local path = work .. "/listeners.zove"
os.remove(path)

-- Every notice a recorder hears goes to the table `heard` holds at the time.
local heard = {}
local function recorder()
  return function(sel, ...)
    heard[#heard + 1] = {sel, ...}
    return 0
  end
end

-- Installing a store broadcasts XTSL for each module DL, then XTSD and XTSI, on its channel; the
-- first word of each notice is the store.
local store = assert(zove.create(path, 2))
local ear = zove.listen("Chan", recorder())
zove.expect(store:send("TSIn", "Chan", 2), 0)
zove.expect({heard[1][1], heard[2][1]}, {"XTSD", "XTSI"}, "notices of a store without modules")
zove.expect(heard[1][2], zove.id(store), "the store is the notice's first word")
local module = store:send("TSNM", "MOD1", 0)
zove.expect(store:send("HChg"), 0)
heard = {}
zove.unlisten(ear)
ear = zove.listen("Chan", recorder())
store:send("Dspo")
zove.expect(#heard, 1)
zove.expect(heard[1][1], "XTSC", "disposal tells the channel")

store = assert(zove.open(path))
heard = {}
zove.expect(store:send("TSIn", "Chan", 2), 0)
zove.expect({heard[1][1], heard[1][3], heard[1][4]}, {"XTSL", zove.fc("MOD1"), module},
            "XTSL names the module's signature and DL")
zove.expect(heard[2][1], "XTSD")

-- A listener that keeps the store busy refuses its closing, through the busy word it was given.
zove.unlisten(ear)
local busy = true
local keeper = zove.listen("Chan", function(sel, st, busyWord, reason)
  if sel == "XTSU" and busy then zove.poke(busyWord, 1) end
  return 0
end)
local reason = zove.buffer(64)
zove.expect(store:send("TSCl", reason), -809, "a busy controller keeps the store open")
zove.expect(store:send("TSTM"), 0, "the store is still installed")
busy = false

-- A listener registered as a module's controller receives what the store forwards to it.
local calls = {}
local controller = zove.listen(nil, function(sel, ...)
  calls[#calls + 1] = {sel, ...}
  if sel == "Ping" then return 77 end
  return 0
end)
zove.expect(store:send("TSRM", "MOD1", controller), 0)
zove.expect(store:send("TSGM", "MOD1"), zove.id(controller))
local owned = store:send("TSDN", "Item", 0, module)
store:send("TSHS", module, "item", owned)
zove.expect(store:send("TSCM", owned), zove.id(controller), "the controller of the owner")
zove.expect(store:send("TSND", "Ping", owned, 5), 77, "TSND answers the controller's answer")
zove.expect({calls[1][1], calls[1][2], calls[1][3]}, {"Ping", owned, 5})
zove.expect(store:send("TSRM", "MOD1", keeper), -809, "a second controller is refused")
local log = zove.log()
assert(log[#log]:find("zoveRegMod: already have controller for 'MOD1'", 1, true),
       "the refusal is logged: " .. table.concat(log, " / "))
assert(log[#log]:match("^515 "), "at the store's fault level")

-- An error inside a listener does not unwind through the store: the store's send completes and
-- the error is raised when it returns.
local fail = true
local boom = zove.listen("Chan", function(sel)
  if sel == "XTSI" and fail then
    fail = false
    error("listener failed on purpose")
  end
  return 0
end)
local ok, err = pcall(store.send, store, "TSTM")
zove.expect(ok, false)
assert(err:find("listener answering 'XTSI'", 1, true) and err:find("on purpose", 1, true), err)
zove.expect(store:send("TSTM"), 0, "the store goes on working afterwards")

-- After unlisten a listener hears nothing more.
zove.unlisten(boom)
heard = {}
local last = zove.listen("Chan", recorder())
zove.unlisten(last)
zove.expect(store:send("TSTM"), 0)
zove.expect(#heard, 0)
ok = pcall(zove.unlisten, last)
zove.expect(ok, false, "unlisten of a listener already gone")
