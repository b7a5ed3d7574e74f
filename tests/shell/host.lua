-- What the host holds for the module: the application's keyed texts, loaded at start, and its
-- raw resources, found wherever the zove command starts; a script may add or replace a text and
-- hand over a resource by its bytes.
local work, zove_bin = ...
assert(zove_bin, "usage: host.lua WORKDIR ZOVE")

-- The application's texts are there from the start, not missing-key markers.
zove.expect(zove.text(18100, "DCNm"), "New %s")
zove.expect(zove.text(18100, "none"), nil)
zove.text(18100, "none", "added by a script")
zove.expect(zove.text(18100, "none"), "added by a script")
zove.text(18100, "DCNm", "Fresh %s")
zove.expect(zove.text(18100, "DCNm"), "Fresh %s", "replaced")

-- A resource handed over by its bytes is read as the application's files are.
zove.expect({zove.resource(4242)}, {nil, -1701, "no such resource"})
zove.resource(4242, "\1\2\0\3")
zove.expect(zove.resource(4242), "\1\2\0\3")
zove.resource(4242, "")
zove.expect(zove.resource(4242), "", "an empty resource is one")

-- Runs a script through the zove command from another folder, with the environment given.
local function writeFile(path, text)
  local f = assert(io.open(path, "wb"))
  f:write(text)
  f:close()
end
local probe = work .. "/probe.lua"
writeFile(probe, 'print(zove.text(18100, "DCNm")); print(zove.resource(77) or "none")\n')
local function run(env)
  local p = io.popen("cd / && " .. env .. " " .. zove_bin .. " shell " .. probe .. " 2>&1")
  local out = p:read("a")
  local _, how, code = p:close()
  zove.expect({how, code}, {"exit", 0}, "zove shell from /:\n" .. out)
  return out
end

-- From the root folder the command still finds the application's texts.
zove.expect(run(""), "New %s\nnone\n")

-- ZOVE_APP names another application folder: its texts and resources are the ones found.
local app = work .. "/app"
os.execute("mkdir -p " .. app .. "/texts " .. app .. "/resources")
writeFile(app .. "/texts/18100.txt", "[18100]\nDCNm = Other %s\n")
writeFile(app .. "/resources/77.res", "RES77")
zove.expect(run("ZOVE_APP=" .. app), "Other %s\nRES77\n")
