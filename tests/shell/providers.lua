-- The provider tree driven as another module drives it: a module's controller (a listener
-- registered for module NOTE) answers for its providers, the manager places and re-homes them,
-- a listener hears the events and a tree watch checks each step. Then a saved tree as `zove tree`
-- prints it.
local work, zove_bin = ...
assert(zove_bin, "usage: providers.lua WORKDIR ZOVE")

local store = zove.memstore(1)
zove.expect(store:send("TSIn", store, 1), 0)

-- Answers are 32-bit values, sign-extended.
local function i32(v) return v >= 0x80000000 and v - 0x100000000 or v end

-- The controller of module NOTE: abilities, and names read from each note's Name string into
-- the string the manager hands it; no sort names, icons or help.
local module = store:send("TSNM", "NOTE", 0)
local abilities = {}
local controller = zove.listen(nil, function(sel, p, s)
  if sel == "PGAb" then return abilities[p] or 0x100 end
  if sel == "PGNm" then store:send("TSSg", p, "Name", s) end
  return 0
end, {answers = {"PGAb", "PGNm"}})
zove.expect(store:send("TSRM", "NOTE", controller), 0)
local function provider(name)
  local dl = store:send("TSDN", "Note", 0, module)
  store:send("TSSS", dl)
  store:send("TSSs", dl, "Name", zove.string(name))
  return dl
end

local manager = zove.object(zove.class("@PRO"):send("SdNw", store))
local watch = zove.treewatch(manager)
local heard = {}
local ear = zove.listen(manager, function(sel, _, a, b, c)
  if sel == "PoXT" then
    heard[#heard + 1] = ("%s %d %d %d"):format(sel, a, b, c)
  else
    heard[#heard + 1] = ("%s %d %d"):format(sel, a, b)
  end
  return 0
end)
local function events()
  local e = heard
  heard = {}
  return e
end

-- Placing: a folder at the top, two notes in it; the second note's parent announced once.
local folder, a, b = provider("Folder"), provider("Apple"), provider("Pear")
abilities[folder] = 0x2
manager:send("PmSh", 0, folder)
manager:send("PmSh", folder, a)
zove.expect(events(), {"PoXA 0 " .. folder, "PoXA " .. folder .. " " .. a, "PoXP 0 " .. folder})
local list = zove.list({b})
manager:send("PmLS", folder, list)
zove.expect(events(), {"PoXU " .. folder .. " 1", "PoXA " .. folder .. " " .. b,
                       "PoXP 0 " .. folder, "PoXU " .. folder .. " 0"})
zove.expect({manager:send("PGtD", b), manager:send("PoGP", b), manager:send("PGAb", folder)},
            {2, folder, 2})
watch:check("after placing")

-- Moving b to the top: one PoXT; a required parent keeps it from leaving folder again.
zove.expect(manager:send("PMov", 0, b), 0)
zove.expect(events(), {"PoXT 0 " .. b .. " " .. folder})
zove.expect(manager:send("PmSR", folder, b), 0)
zove.expect(events(), {"PoXT " .. folder .. " " .. b .. " 0"})
zove.expect(manager:send("PMov", 0, b), -835)
zove.expect(manager:send("PTMv", b, 0), -835)
zove.expect(manager:send("PMov", b, folder), -834, "a folder cannot go below its note")
zove.expect(events(), {})
watch:check("after moving")

-- Forwarding: names from the controller; the forwarder's selectors, which it does not answer,
-- give -833; an owner without a controller gives -832 and an empty string.
local s = zove.string("old")
zove.expect(manager:send("PGNm", a, s, 0), 0)
zove.expect(s.text, "Apple")
zove.expect(manager:send("PGSN", b, s, 1), 0)
zove.expect(s.text, "Pear", "no sort names: the name of kind 0")
zove.expect({manager:send("PRen", a, 0), manager:send("PGII", a), manager:send("PMdy", a)},
            {-833, -833, -833})
local loose = store:send("TSDN", "Note", 0, store:send("TSNM", "GONE", 0))
zove.expect(manager:send("PGNm", loose, s, 0), -832)
zove.expect(s.text, "")
zove.expect(manager:send("PoCo", a), zove.id(controller))

-- A link: shown with its target, resolved before opening, named by its target's controller.
local link = provider("Link to Apple")
manager:send("PmSL", link, a)
manager:send("PmHd", a)
events()
manager:send("PmSh", 0, a)
zove.expect(events(), {"PoXA " .. folder .. " " .. a, "PoXP 0 " .. folder, "PoXA 0 " .. link})
local cell = zove.word(link)
zove.expect(manager:send("PRvL", cell, 0), 0)
zove.expect(cell.value, a)
zove.expect(manager:send("PEnL", a, 0), link)
zove.expect(manager:send("PGAb", link), i32(0x80000100))
watch:check("after linking")

-- Sorted by name: the controller has no sort names, so PGSN gives each name of kind 0.
local shownList = zove.list()
manager:send("PmSh", folder, provider("Cherry"))
events()
zove.expect(manager:send("PoEL", folder, shownList, 0, 0, 1), 0)
local order = {}
for _, dl in ipairs(shownList:items()) do
  manager:send("PGNm", dl, s, 0)
  order[#order + 1] = s.text
end
zove.expect(order, {"Apple", "Cherry", "Pear"})
zove.expect(manager:send("PoGR", folder, "_pst"), 1, "the sort mark")

zove.unlisten(ear)
watch:close()

-- A saved tree, as zove tree prints it.
local path = work .. "/tree.zove"
for _, suffix in ipairs({"", "-journal"}) do os.remove(path .. suffix) end
local saved = assert(zove.create(path, 1))
zove.expect(saved:send("TSIn", saved, 1), 0)
local m2 = zove.object(zove.class("@PRO"):send("SdNw", saved))
local note = saved:send("TSDN", "Note", 0, 0)
saved:send("TSSS", note)
saved:send("TSSs", note, "Name", zove.string("Kept"))
local inner = saved:send("TSDN", "Note", 0, 0)
saved:send("TSSS", inner)
m2:send("PmSh", 0, note)
m2:send("PmSh", note, inner)
zove.expect(m2:send("PmRP", inner, note), 0)
zove.expect(saved:send("HChg"), 0)
local p = io.popen(zove_bin .. " tree " .. path .. " 2>&1")
local text = p:read("a")
assert(p:close(), text)
local r2 = m2:send("SdRR")
zove.expect(text, ("provider tree of %s, root DL %d (PRO1)\n"):format(path, r2) ..
  ("DL %d 'PRO1'  abilities 0x08000002\n"):format(r2) ..
  ("  DL %d 'Note' \"Kept\"  abilities 0x08000002\n"):format(note) ..
  ("    DL %d 'Note'  abilities 0x08000002  required parent DL %d\n"):format(inner, note))
p = io.popen(zove_bin .. " tree " .. path .. " --json 2>&1")
text = p:read("a")
assert(p:close(), text)
assert(text:find(('"dl": %d, "uType": "Note", "name": null, "listedUnder": %d, "parent": %d'):format(
  inner, note, note), 1, true), text)
zove.expect(zove.asserts(), {}, "no assertion on the way")
