#!/usr/bin/env bash
# Fails when a file includes a header of a layer above its own. The layers, bottom-up; a folder
# may include its own headers and those of any layer below it, never one above or beside it.
# The host (app, tools) reaches the module through its face only: include/, never the module's
# own folders; tests, benchmarks and fuzzers may look inside.
set -euo pipefail
cd "$(dirname "$0")/.."

layers=(
  platform/zelkor
  platform/fundra
  platform/storefile
  include
  store
  db
  providers
  specs
  schedule
  module
  app
  tools
  tests
  bench
  fuzz
)

# The layer of a path, as an index into layers (tools, tests, bench and fuzz share the top).
rank() {
  local p=$1 i
  for i in "${!layers[@]}"; do
    if [[ $p == "${layers[$i]}"/* ]]; then
      case ${layers[$i]} in tests | bench | fuzz) echo 11 ;; *) echo "$i" ;; esac
      return
    fi
  done
  echo -1
}
layer_of() {
  local p=$1 l
  for l in "${layers[@]}"; do [[ $p == "$l"/* ]] && { echo "$l"; return; }; done
}

internal='^(store|db|providers|specs|schedule|module)/'

bad=0
while IFS=: read -r file _ inc; do
  inc=${inc#*\"}
  inc=${inc%%\"*}
  [[ $inc == zove/* ]] && inc=include/$inc
  to=$(rank "$inc")
  ((to < 0)) && continue # a header beside the file, or a system one
  from=$(rank "$file")
  if ((from < 0)); then
    echo "layers: $file is in no layer"
    bad=1
  elif ((to > from)) || { ((to == from)) && [[ $(layer_of "$file") != $(layer_of "$inc") ]] &&
    ((from < 11)); }; then
    echo "layers: $file includes $inc, which is above or beside its layer"
    bad=1
  elif [[ $file =~ ^(app|tools)/ && $inc =~ $internal ]]; then
    echo "layers: $file includes $inc, inside the module; the host sees its face (include/) only"
    bad=1
  fi
done < <(git ls-files --cached --others --exclude-standard '*.h' '*.cc' | xargs grep -n '^#include "' /dev/null)
exit $bad
