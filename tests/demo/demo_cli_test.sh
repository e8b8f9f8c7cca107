#!/usr/bin/env bash
# scripts/demo from the shell, against the build tree BUILD_DIR: --stop
# without a box makes none, a box booted with --detach answers, its native
# master window stays on Back, a second --detach reuses it, a package that
# others require is not removed and the failure names them, a killed server's
# box is cleaned up and booted anew with the packages its user left and the
# killed run's logs kept, --stop leaves nothing (twice), Ctrl-C during a boot
# stops what it started, and a port in use is refused before anything starts.
# The master window is a native program: no browser is needed.
#   tests/demo/demo_cli_test.sh BUILD_DIR
set -euo pipefail
project=$(cd "$(dirname "$0")/../.." && pwd)
# shellcheck source=tests/demo/eventually.sh
. "$project/tests/demo/eventually.sh"
build=$(realpath "$1")
box=$build/demo-cli-test
rm -rf "$box"
free_port() { python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
export VELMORA_BUILD_DIR=$build VELMORA_BOX_DIR=$box VELMORA_BOX_PORT=$(free_port) VELMORA_SCREEN_PORT=$(free_port)
export VELMORA_BOX_HOME_TYPE=OTHER VELMORA_BOX_HOME_URL=velmora-native-demo VELMORA_BOOT_TIMEOUT=60
demo() { "$project/scripts/demo" "$@"; }
ctl() { VELMORA_RUNTIME_DIR=$box/run/bus "$build/tools/velmoractl/velmoractl" "$@"; }
check() {
  if ! eval "$2"; then
    echo "FAILED: $1" >&2
    tail -n 20 "$box"/log/server.log >&2 || true
    exit 1
  fi
}
# The process groups that scripts/demo recorded, and whether any of their
# members live (a zombie waits only for its reaper).
groups() { cat "$box"/run/pids/* 2>/dev/null; }
alive() {
  local group
  for group in "$@"; do
    ps -o stat= -g "$group" 2>/dev/null | grep -qv '^Z' && return 0
  done
  return 1
}
gone() { ! alive "$@"; }
ended() { eventually gone "$@"; }
trap 'demo --stop >/dev/null 2>&1 || true' EXIT

check "--stop without a box makes no box" 'demo --stop 2>/dev/null && [ ! -e "$box" ]'

expected="endpoint $box/run/bus/ZAV.sock
port $VELMORA_BOX_PORT"
check "--detach prints the endpoint and the port" '[ "$(demo --detach 2>"$box.err")" = "$expected" ]'
check "the master window runs" '[ "$(ctl state "$(ctl windows | head -n 1)")" = RUNNING ]'
# The native program leaves on Back, but not as the master window: it takes
# the next key too.
master=$(ctl windows | head -n 1)
took() { grep -q "\"lastKey\" *: *\"$1\"" "$box/run/cards/$master.json" 2>/dev/null; }
check "the master window stays on Back" \
  'ctl key Back Menu --device "$box/run/keys.fifo" && eventually took Menu && [ "$(ctl state "$master")" = RUNNING ]'
server=$(cat "$box/run/pids/server")
check "a second --detach reuses the box" \
  '[ "$(demo --detach 2>/dev/null)" = "$expected" ] && [ "$(cat "$box/run/pids/server")" = "$server" ]'

check "a package is removed" 'ctl remove velmora-app-news >/dev/null'
check "a package that others require stays, and the failure names them" \
  'failure=$(ctl remove velmora-system 2>&1 >/dev/null); [ $? -eq 1 ] &&
   [[ $failure == *"required by "*velmora-app-clock* ]] && ctl packages | grep -q velmora-system'
old=$(groups)
kill -KILL "$server"
# As after a crash, the server has died before anyone looks: SIGKILL ends
# its threads in their own time.
died() { ! ps -o stat= -p "$1" 2>/dev/null | grep -qv '^Z'; }
check "the killed server dies" 'eventually died "$server"'
check "--detach after the server was killed boots a new box" \
  '[ "$(demo --detach 2>/dev/null)" = "$expected" ] && [ "$(cat "$box/run/pids/server")" != "$server" ]'
check "nothing of the killed box is left" 'ended $old'
check "the new box answers" 'ctl windows | grep -q .'
check "the new box keeps the packages as they were left" \
  'ctl packages | grep -q velmora-native-demo && ! ctl packages | grep -q velmora-app-news'
check "the killed run's log is kept" 'grep -q "serving ZAV" "$box/log/server.log.1"'

new=$(groups)
check "--stop ends the box" 'demo --stop 2>/dev/null'
check "no process of the box is left" 'ended $new'
check "no socket or FIFO is left" '[ ! -e "$box/run" ]'
check "a second --stop is fine" 'demo --stop 2>/dev/null'

# Ctrl-C once the server has started. Started in the background, the script
# begins with SIGINT ignored, as a job of a script does, and must take it all
# the same.
"$project/scripts/demo" --detach >/dev/null 2>"$box.err" &
booting=$!
check "the interrupted boot starts the server" 'eventually test -s "$box/run/pids/server"'
new=$(groups)
kill -INT "$booting"
status=0
wait "$booting" || status=$?
check "an interrupted boot says so" '[ $status -eq 130 ] && grep -q interrupted "$box.err" && ! grep -q error: "$box.err"'
check "an interrupted boot stops what it started" 'ended $new && [ ! -e "$box/run" ]'

# A port in use: refused with its number, before anything starts.
exec 3< <(exec python3 -c 'import signal, socket, sys
s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", int(sys.argv[1]))); s.listen(); print("ready", flush=True); signal.pause()' \
  "$VELMORA_BOX_PORT")
holder=$!
read -r _ <&3
status=0
output=$(demo --detach 2>&1) || status=$?
kill "$holder"
check "a port in use is refused by name" '[ $status -eq 1 ] && [[ $output == *"port $VELMORA_BOX_PORT is in use"* ]]'
check "nothing was started" '[ ! -e "$box/run/pids/server" ]'
rm -rf "$box" "$box.err"
echo "demo_cli: all passed"
