-- The zove command's subcommands on files this test makes: the demo's store file, an exchange
-- stream, a damaged copy and a file that is no store at all.
local work, zove_bin = ...
assert(zove_bin, "usage: cli.lua WORKDIR ZOVE")

-- Runs zove with the arguments; answers stdout and stderr together, and the exit status (a
-- signal, such as a crash, is reported as an error right away).
local function run(args)
  local p = io.popen(zove_bin .. " " .. args .. " 2>&1")
  local out = p:read("a")
  local _, how, code = p:close()
  assert(how == "exit", "zove " .. args .. " ended by signal " .. tostring(code) .. ":\n" .. out)
  return out, code
end

local function expectRun(args, status, ...)
  local out, code = run(args)
  zove.expect(code, status, "exit status of zove " .. args .. "\n" .. out)
  for _, text in ipairs({...}) do
    assert(out:find(text, 1, true), "zove " .. args .. " should say '" .. text .. "':\n" .. out)
  end
  return out
end

local file = work .. "/demo.zove"
local out  -- files the test writes
for _, suffix in ipairs({"", "-journal", "-wal", "-shm"}) do os.remove(file .. suffix) end

-- The demo makes the file every other command is tried on, and will not overwrite a given one.
expectRun("demo " .. file, 0, "sound", "equal", "Garden shed", "TSTB -809",
          "\"Object <Proj=", "\"Controller <DEMO>\"")
expectRun("demo " .. file, 1, "exists already")
expectRun("demo " .. work, 1, "is a folder")
expectRun("demo " .. work .. "/none/x.zove", 1, "no such folder")

expectRun("stat " .. file, 0, "version   1", "'DEMO'  DL", "records   1,")
expectRun("check " .. file, 0, "sound")
expectRun("check " .. file .. " --expect-version 2", 1,
          "wrong version, wanted 0x00000002, found 0x00000001", "not sound")

-- The dump shows everything from DL 1, strings and dates decoded; given DLs only those.
local dump = expectRun("dump " .. file, 0, "DL 1 'root'", "'mods'  list", 'string "Garden shed"',
                       "date 2027-05-01 09:00:00.000", "vhandle, record")
local plans = {}
for dl in dump:gmatch("DL (%d+) 'Plan'") do plans[#plans + 1] = tonumber(dl) end
zove.expect(#plans, 2, "the plan and its imported copy")
local one = expectRun("dump " .. file .. " " .. plans[1], 0, "'Step'  list")
assert(not one:find("DL 1 'root'", 1, true), "only the DL asked for")
expectRun("dump " .. file .. " --json", 0, '"uType": "root"', '"kind": "part link"',
          '"decoded": "Garden shed"')
expectRun("graph " .. file, 0, "digraph store {", "arrowtail=diamond", "color=blue",
          "peripheries=2")
-- Graphviz draws what it prints, as the demo suggests (where dot is installed).
if os.execute("command -v dot > /dev/null 2>&1") then
  expectRun("graph " .. file .. " | dot -Tsvg", 0, "<svg")
end
-- On a terminal the progress line is erased before the result is printed.
if os.execute("command -v script > /dev/null 2>&1") then
  local p = io.popen(("script -qc '%s check %s' /dev/null"):format(zove_bin, file))
  local tty = p:read("a")
  p:close()
  assert(tty:find("\27[K" .. file .. ": sound", 1, true),
         "the progress is erased right before the result:\n" .. tty)
end
local shallow = expectRun("graph " .. file .. " --depth 0", 0, "dl1 [")
assert(not shallow:find("->", 1, true), "depth 0 draws the start alone")

-- Export a plan, import it over the other one, and the store is still sound.
local stream = work .. "/plan.zex"
os.remove(stream)
expectRun(("export %s %d %s"):format(file, plans[1], stream), 0, "exported DL " .. plans[1])
-- Export writes over nothing it was not asked to: not the store nor its journal, not a folder,
-- not an existing file unless forced.
for _, target in ipairs({file, file .. "-journal", work .. "/../" .. work:match("[^/]+$") ..
                         "/demo.zove"}) do
  expectRun(("export %s %d %s --force"):format(file, plans[1], target), 1,
            "is the store file or one it keeps beside it")
end
expectRun(("export %s %d %s"):format(file, plans[1], work), 1, "is a folder")
expectRun(("export %s %d %s"):format(file, plans[1], stream), 1, "exists already; --force")
expectRun(("export %s %d %s --force"):format(file, plans[1], stream), 0, "exported DL")
expectRun("check " .. file, 0, "sound")
local f = assert(io.open(stream, "rb"))
-- The persist header keeps its tag as a little-endian word.
zove.expect(f:read(4), ".xET", "the stream starts with its persist tag")
f:close()
expectRun(("import %s %d %s"):format(file, plans[2], stream), 0, "saved")
expectRun("check " .. file, 0, "sound")
expectRun(("import %s 1 %s"):format(file, stream), 1, "replace the root")
local project = tonumber(dump:match("DL (%d+) 'Proj'"))
expectRun(("export %s %d %s"):format(file, project, work .. "/proj.zex"), 1, "shared DL")
-- A stream cut short or with a record count past its end is refused without a crash, and the
-- file stays sound.
local whole = assert(io.open(stream, "rb")):read("a")
for i, broken in ipairs({{whole:sub(1, 4), "too short for the header"},
                         {whole:sub(1, 60), "failed, -806 (kBadStream)"},
                         {whole:sub(1, 8) .. "\255\255\0\0" .. whole:sub(13),
                          "reaches past the end of the stream"}}) do
  local name = work .. "/broken" .. i .. ".zex"
  out = assert(io.open(name, "wb"))
  out:write(broken[1])
  out:close()
  expectRun(("import %s %d %s"):format(file, plans[2], name), 1, broken[2])
end
-- A stream whose top DL repeats a key: refused with the code's name, what was wrong and where.
-- A step of the plan has several items; its record starts at byte 12, its items follow its
-- 20-byte header and its data area.
local step = tonumber(dump:match("DL (%d+) 'Step'"))
local stepStream = work .. "/step.zex"
os.remove(stepStream)
expectRun(("export %s %d %s"):format(file, step, stepStream), 0, "exported DL " .. step)
whole = assert(io.open(stepStream, "rb")):read("a")
local dataSize, count = string.unpack("<i4<i4", whole, 12 + 12 + 1)
assert(count >= 2, "a step has two items or more")
local firstKey = 12 + 20 + dataSize + 8  -- bytes before it
local repeated = whole:sub(1, firstKey + 12) .. whole:sub(firstKey + 1, firstKey + 4) ..
                 whole:sub(firstKey + 17)
out = assert(io.open(work .. "/repeated.zex", "wb"))
out:write(repeated)
out:close()
expectRun(("import %s %d %s"):format(file, plans[2], work .. "/repeated.zex"), 1,
          "-806 (kBadStream): ", "stream refused at byte " .. (firstKey + 12) ..
          ": a key that repeats the one before or sorts before it")
expectRun("check " .. file, 0, "sound")
-- What import is given is looked at before it is read.
expectRun(("import %s %d %s"):format(file, plans[2], work .. "/missing.zex"), 1, "no such file")
expectRun(("import %s %d %s"):format(file, plans[2], work), 1, "is a folder")
expectRun(("import %s %d /dev/zero"):format(file, plans[2]), 1, "not a regular file")
expectRun("gc " .. file, 0, "saved")
expectRun("recover " .. file, 0, "no save was interrupted")

-- A damaged copy: one byte of a stored string flipped. Every command says so and fails.
local bytes = assert(io.open(file, "rb")):read("a")
local at = assert(bytes:find("Garden shed", 1, true), "the name lies in the file")
local damaged = work .. "/damaged.zove"
out = assert(io.open(damaged, "wb"))
out:write(bytes:sub(1, at - 1), "g", bytes:sub(at + 1))
out:close()
for _, cmd in ipairs({"stat", "check", "dump", "graph", "gc"}) do
  expectRun(cmd .. " " .. damaged, 1, "damaged")
end

-- No store file at all, no file, bad arguments, help.
local junk = work .. "/junk.zove"
out = assert(io.open(junk, "w"))
out:write(("this is not a store file\n"):rep(100))
out:close()
expectRun("check " .. junk, 1, "not a store file")
expectRun("stat " .. work .. "/missing.zove", 1, "missing.zove: no such file")
expectRun("stat " .. work .. "/none/x.zove", 1, "no such folder")
expectRun("check " .. work, 1, "is a folder, not a file")
expectRun("--version", 0, "zove 0.", "store file format 1")
expectRun("--help", 0, "FILE-journal", "zove recover FILE")
expectRun("dump " .. file .. " seven", 2, "'seven'")
expectRun("export " .. file, 2, "usage")
expectRun("nonsense", 2, "unknown command")
expectRun("check --help", 0, "usage: zove check FILE")

-- The shell itself: a failing script names its file and line and exits with 1, after the log
-- lines it had not read; arguments reach the script; the prompt prints what expressions give.
local script = work .. "/fails.lua"
out = assert(io.open(script, "w"))
out:write('local a, b = ...\nassert(a == "one" and b == "two", "arguments")\n',
          'zove.open("' .. work .. '/missing.zove")\n', 'error("stopped here")\n')
out:close()
expectRun("shell " .. script .. " one two", 1, "fails.lua:4: stopped here", "stack traceback",
          "log lines the script had not read", "No such file or directory")
expectRun("shell " .. script .. " one", 1, "fails.lua:2: arguments")
expectRun("shell " .. work .. "/absent.lua", 1, "absent.lua")
local input = work .. "/prompt.txt"
out = assert(io.open(input, "w"))
out:write('zove.fc("Setu"), "x"\n', "for i = 1, 2 do\n", "  print(i * 10)\n", "end\n",
          "zove.fc('ab')\n", "zove.fcstr(zove.fc('Next'))\n")
out:close()
expectRun("shell < " .. input, 0, "1399157877\tx", "10\n20", "not four characters", "Next")
