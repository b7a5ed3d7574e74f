-- Store files from scripts: creating, refusing, saving, reopening and read-only use.
local work = ...
local path = work .. "/files.zove"
os.remove(path)

-- What is saved is what a reopened store reads.
local store = assert(zove.create(path, 4))
zove.expect(store:send("TSIn", "File", 4), 0)
local dl = store:send("TSDN", "Note", 0, 0)
store:send("TSHS", 1, "note", dl)
store:send("TSSs", dl, "Text", zove.string("kept across a reopen"))
zove.expect(store:send("HChg"), 0, "save")
store:send("TSSs", dl, "Text", zove.string("never saved"))
store:send("Dspo")

-- Refusals are answers: nil, the code and its text.
local none, code, text = zove.create(path, 4)
zove.expect({none, code}, {nil, -1113}, "create over an existing file")
assert(text and #text > 0)
none, code = zove.open(work .. "/missing.zove")
zove.expect({none, code}, {nil, -1113}, "open of a missing file")
local junk = io.open(work .. "/junk.zove", "w")
junk:write(("not a store file\n"):rep(200))
junk:close()
none, code = zove.open(work .. "/junk.zove")
zove.expect({none, code}, {nil, -1116}, "open of a file that is no store file")
assert(not pcall(zove.open, path, "w"), "an unknown mode is an error")

-- Read-only: the content is there, and saving is refused by the file.
store = assert(zove.open(path, "r"))
zove.expect(store:send("TSIn", "File", 4), 0)
local h = zove.word()
zove.expect(store:send("TSHG", 1, "note", h), 0)
local s = zove.string()
zove.expect(store:send("TSSg", h.value, "Text", s), 0)
zove.expect(s.text, "kept across a reopen", "unsaved changes are gone")
zove.expect(store:send("HChg"), -1115, "a read-only file is never written")

-- One writer at a time; readers do not count.
local writer = assert(zove.open(path))
none, code = zove.open(path)
zove.expect({none, code}, {nil, -1114}, "a second writer")
writer:send("Dspo")
writer = assert(zove.open(path), "the lock goes with the first writer")
writer:send("Dspo")
store:send("Dspo")
