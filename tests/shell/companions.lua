-- User containers driven as another module drives them: a folder type whose texts are the
-- application's (table 18150), folders named through the naming dialog, placed, renamed and
-- forgotten through the manager; a tree watch checks each step. Then a store saved and opened
-- again: defining the folder type once more shows the folders where they were.
local work = ...
assert(work, "usage: companions.lua WORKDIR")

local store = zove.memstore(1)
zove.expect(store:send("TSIn", store, 1), 0)

-- Notes of module NOTE, whose controller (a listener) names them from their Name strings.
local module = store:send("TSNM", "NOTE", 0)
local controller = zove.listen(nil, function(sel, p, s)
  if sel == "PGAb" then return 0x100 end
  if sel == "PGNm" then store:send("TSSg", p, "Name", s) end
  return 0
end, {answers = {"PGAb", "PGNm"}})
zove.expect(store:send("TSRM", "NOTE", controller), 0)
local function note(name)
  local dl = store:send("TSDN", "Note", 0, module)
  store:send("TSSS", dl)
  store:send("TSSs", dl, "Name", zove.string(name))
  return dl
end

-- A manager with a watch and an ear on its events.
local function manage(st)
  local m = zove.object(zove.class("@PRO"):send("SdNw", st))
  local heard = {}
  local ear = zove.listen(m, function(sel, _, a, b)
    heard[#heard + 1] = ("%s %d %d"):format(sel, a, b)
    return 0
  end)
  local function events()
    local e = heard
    heard = {}
    return e
  end
  return m, zove.treewatch(m), events, ear
end
local manager, watch, events = manage(store)
local s = zove.string()
local function name(p)
  manager:send("PGNm", p, s, 0)
  return s.text
end

-- The folder type, defined through the manager, which forwards to its container object.
local record = manager:send("PcCT", "Fold", 18150, 0x2)
zove.expect(store:send("TSDT", record), zove.fc("PCtn"))
zove.expect(store:send("TSCS", record), 0)

-- A new folder: the dialog offers a free name; the user's answer names the folder.
zove.answer(-1203, "Garden")
local garden = manager:send("PcNC", "Fold", 0)
local asked = zove.queries()
zove.expect({asked[1].text, asked[1].proposal, asked[1].length, asked[1].style},
            {"Name of the new folder:", "New folder", -31, 18})
zove.expect({name(garden), store:send("TSCS", garden)}, {"Garden", zove.fc("PCL1")})

-- A taken name brings the alert and the question again; another case is another name.
zove.answer(-1203, "Garden")
zove.answer(-1203, "garden")
local shed = manager:send("PcNC", "Fold", 0)
zove.expect(zove.alerts(), {'A folder named "Garden" already exists. Choose another name.'})
zove.expect(#zove.queries(), 2)
zove.expect(manager:send("PcFC", "Fold", zove.string("garden")), shed)
zove.expect(events(), {}, "new folders are not shown: their maker places them")

-- Placing: both folders at the top, a note in the garden.
local seeds = note("Seeds")
manager:send("PmSh", 0, garden)
manager:send("PmSh", 0, shed)
manager:send("PmSh", garden, seeds)
zove.expect(events(), {"PoXA 0 " .. garden, "PoXA 0 " .. shed, "PoXA " .. garden .. " " .. seeds,
                       "PoXP 0 " .. garden})
zove.expect(manager:send("PGAb", garden), 2)
watch:check("after placing")

-- Renaming through the dialog, which offers the current name; the change is announced. A cancel
-- answers the dialog's code.
zove.answer(-1203, "Orchard")
zove.expect(manager:send("PRen", garden, 0), 0)
asked = zove.queries()
zove.expect({asked[1].text, asked[1].proposal}, {"New name for this folder:", "Garden"})
zove.expect({name(garden), events()}, {"Orchard", {"PoXM 0 " .. garden}})
zove.answer(-1201)
zove.expect(manager:send("PRen", garden, 0), -1201)
zove.answer(-1203, "Orchard")
zove.expect(manager:send("PRen", garden, 0), 0, "its own name: nothing changes")
zove.expect(events(), {})
zove.queries()

-- Forgetting: the empty shed goes, hidden first, then every reference to it cut.
zove.expect(manager:send("PFog", shed, 0), 0)
zove.expect(events(), {"PoXD 0 " .. shed, "PoXP 0 0"})
zove.expect(manager:send("PcFC", "Fold", zove.string("garden")), 0)
zove.expect(manager:send("PoIA", 0, 1), 0, "the garden alone at the top")
watch:check("after forgetting")

-- Saved, and opened again: only the root is shown until the folder type is defined once more.
local path = work .. "/folders.zove"
for _, suffix in ipairs({"", "-journal"}) do os.remove(path .. suffix) end
local saved = assert(zove.create(path, 1))
zove.expect(saved:send("TSIn", saved, 1), 0)
local m1 = zove.object(zove.class("@PRO"):send("SdNw", saved))
m1:send("PcCT", "Fold", 18150, 0x2)
local attic = m1:send("PcNC", "Fold", zove.string("Attic"))
local boxes = m1:send("PcNC", "Fold", zove.string("Box room"))
m1:send("PmSh", 0, attic)
m1:send("PmSh", attic, boxes)
zove.expect(saved:send("HChg"), 0)
saved:send("Dspo")

local again = assert(zove.open(path))
zove.expect(again:send("TSIn", again, 1), 0)
local m2, watch2, events2 = manage(again)
zove.expect({m2:send("PmS?", attic), m2:send("PmS?", boxes)}, {0, 0})
m2:send("PcCT", "Fold", 18150, 0x2)
zove.expect(events2(), {"PoXA 0 " .. attic, "PoXA " .. attic .. " " .. boxes, "PoXP 0 " .. attic})
zove.expect(m2:send("PcFC", "Fold", zove.string("Box room")), boxes)
watch2:check("after defining the type again")
zove.expect(zove.asserts(), {}, "no assertion on the way")
