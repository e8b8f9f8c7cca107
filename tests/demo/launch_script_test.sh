#!/usr/bin/env bash
# start_webkit.sh against a stand-in browser that says DevTools listens and
# then ends as told: the window's process ends as the browser did (its exit
# status, or killed by its signal), a signal sent to the script ends it by that
# signal and takes the browser along, and the browser's temporary files live
# in the box's run folder and go with the window.
#   tests/demo/launch_script_test.sh WORK_DIR
set -euo pipefail
project=$(cd "$(dirname "$0")/../.." && pwd)
# shellcheck source=tests/demo/eventually.sh
. "$project/tests/demo/eventually.sh"
work=$(realpath -m "$1")/launch-script-test
rm -rf "$work"
mkdir -p "$work/run" "$work/tmp"
export VELMORA_BOX_RUN=$work/run VELMORA_CHROMIUM=$work/browser TMPDIR=$work/tmp
export VELMORA_APP_PARAMETERS='{"applicationURL": "about:blank", "authorizationToken": "w1"}'
cat >"$VELMORA_CHROMIUM" <<'BROWSER'
#!/usr/bin/env bash
# Makes its single-instance socket's folder and link as the browser does.
profile=$(printf '%s\n' "$@" | sed -n 's/^--user-data-dir=//p')
folder=$(mktemp -d "$TMPDIR/org.chromium.Chromium.XXXXXX")
ln -s "$folder/SingletonSocket" "$profile/SingletonSocket"
echo $$ >"$VELMORA_BOX_RUN/browser.pid"
echo "DevTools listening on ws://127.0.0.1:9/devtools/browser/w1" >&2
[ -z "${BROWSER_EXIT:-}" ] || exit "$BROWSER_EXIT"
exec sleep 600
BROWSER
chmod +x "$VELMORA_CHROMIUM"

fail() {
  echo "FAILED: $1" >&2
  exit 1
}
# Starts a window and, once it serves DevTools, ends it with the shell command
# ENDING (none: the browser ends by itself); prints how the window's process
# ended, as an exit status or a negative signal number.
window() {
  local status
  rm -f "$work/run/browser.pid"
  coproc python3 -c 'import subprocess, sys; print(subprocess.run(sys.argv[1:]).returncode)' \
    "$project/demo/bin/start_webkit.sh" 2>>"$work/window.log"
  if [ -n "$1" ]; then
    eventually test -s "$work/run/devtools/w1" || fail "the window serves DevTools"
    eval "$1"
  fi
  read -r -u "${COPROC[0]}" status
  wait "$COPROC_PID"
  echo "$status"
}
browser() { cat "$work/run/browser.pid"; }
script() { pgrep -f "start_webkit.sh" -P "$COPROC_PID"; }

[ "$(BROWSER_EXIT=3 window '')" = 3 ] || fail "a browser's exit status is the window's"
[ "$(window 'kill -SEGV "$(browser)"')" = -11 ] || fail "a browser's crash is the window's, by its signal"
[ "$(window 'kill -KILL "$(browser)"')" = -9 ] || fail "a killed browser kills the window"
[ "$(window 'echo "$(browser)" >"$work/killed"; kill -TERM "$(script)"')" = -15 ] ||
  fail "a signal to the script ends it by that signal"
! kill -0 "$(cat "$work/killed")" 2>/dev/null || fail "the browser goes with its window"
empty() { [ -z "$(find "$@" -mindepth 1)" ]; }
eventually empty "$work/run/tmp" "$work/run/chromium" || fail "the browser's temporary files go with it"
empty "$work/tmp" || fail "the browser writes nothing to \$TMPDIR"
rm -rf "$work"
echo "launch_script: all passed"
