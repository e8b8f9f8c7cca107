#!/usr/bin/env bash
# Starts a web page, web application or browser window in Chromium.
#
# The launch parameters (VELMORA_APP_PARAMETERS, JSON) give the URL and the
# window's uid (its authorization token, else this process's id). A
# "file:///usr/local/html_root/..." URL is mapped into the sysroot
# ($VELMORA_ROOT); the page learns its uid and the server's WebSocket address
# from the fragment "#uid=<uid>&ws=ws://127.0.0.1:<VELMORA_BOX_PORT>/".
# The browser gets a fresh profile under $VELMORA_BOX_RUN/chromium/<uid>
# (its XDG config and cache folders too: nothing goes to the home folder) and
# its temporary files under $VELMORA_BOX_RUN/tmp, runs headless without
# $DISPLAY, and its DevTools address is written to
# $VELMORA_BOX_RUN/devtools/<uid> while it runs.
#
# The server ends a window by ending this process: a signal ends the browser
# first, and the browser is bound to die with this process (parent-death
# signal) should this one be killed outright. A page that leaves (it reported
# TERMINATED) closes its window, and the script then ends by itself (status
# 0), without waiting for the server's kill. Otherwise the script ends as the
# browser did, with its exit status or by its signal, and a signal sent to the
# script ends it by that signal once the browser has gone: the server's
# journal tells a crash from an end. VELMORA_BROWSER_FLAGS adds flags
# (start_webkitGl.sh uses it).
#
# Outside a box (no VELMORA_BOX_RUN) the SDK's test program stands in for the
# page, or the program that VELMORA_APP_PROGRAM names.
set -u
if [ -z "${VELMORA_BOX_RUN:-}" ]; then
  exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
fi
# A window ends with the server that started it, however the server ends.
if [ -z "${VELMORA_WINDOW_BOUND:-}" ]; then
  VELMORA_WINDOW_BOUND=1 exec setpriv --pdeathsig TERM -- "$0" "$@"
fi
unset VELMORA_WINDOW_BOUND

# Prints the URL and the uid, one a line.
read_parameters() {
  node -e '
    let p = {};
    try { p = JSON.parse(process.env.VELMORA_APP_PARAMETERS || "{}") || {}; } catch {}
    const token = typeof p.authorizationToken === "string" ? p.authorizationToken : "";
    console.log(String(p.applicationURL || "about:blank").replace(/\n/g, ""));
    console.log(token !== "" ? token : process.argv[1]);
  ' "$$"
}
{ read -r url; read -r uid; } < <(read_parameters)
case "$uid" in
  ''|*[!0-9A-Za-z_-]*) echo "start_webkit.sh: refused the uid '$uid'" >&2; exit 1 ;;
esac

html_root=file:///usr/local/html_root/
if [ "${url#"$html_root"}" != "$url" ]; then
  url="file://${VELMORA_ROOT:-}/usr/local/html_root/${url#"$html_root"}"
fi
# As a web server would: a folder's page is its index.html, and a name
# without extension is its .html page (the search site's ".../search?q=").
local_path=${url#file://}
local_path=${local_path%%[?#]*}
if [ "${url#file://}" != "$url" ]; then
  rest=${url#file://"$local_path"}
  if [ -d "$local_path" ]; then
    url="file://${local_path%/}/index.html$rest"
  elif [ ! -e "$local_path" ] && [ -f "$local_path.html" ]; then
    url="file://$local_path.html$rest"
  fi
fi
url="${url%%#*}#uid=${uid}&ws=ws://127.0.0.1:${VELMORA_BOX_PORT:-8700}/"

profile=$VELMORA_BOX_RUN/chromium/$uid
devtools=$VELMORA_BOX_RUN/devtools/$uid
rm -rf "$profile"
mkdir -p "$profile" "$VELMORA_BOX_RUN/devtools"
# The browser's temporary files go with the box's run folder. Among them is
# its single-instance socket, TMPDIR/org.chromium.Chromium.XXXXXX/SingletonSocket,
# whose path must fit in 107 bytes or the browser aborts: a run folder that
# deep leaves them in the usual place.
browser_tmp=${TMPDIR:-/tmp}
if [ "$(printf %s "$VELMORA_BOX_RUN/tmp" | wc -c)" -le $((107 - 45)) ]; then
  browser_tmp=$VELMORA_BOX_RUN/tmp
  mkdir -p "$browser_tmp"
fi

# shellcheck disable=SC2054 # commas inside flags
flags=(
  --user-data-dir="$profile" --remote-debugging-port=0
  --no-first-run --no-default-browser-check --disable-sync --disable-extensions
  --disable-background-networking --disable-component-update --password-store=basic
  --disable-background-timer-throttling --disable-renderer-backgrounding
  --disable-backgrounding-occluded-windows --disable-dev-shm-usage --mute-audio --log-level=3
  --allow-file-access-from-files --autoplay-policy=no-user-gesture-required
  --window-size=1280,720
)
[ "$(id -u)" -eq 0 ] && flags+=(--no-sandbox)
# An application window: no tabs, no toolbar, the page alone as on a TV.
# shellcheck disable=SC2054
flags+=(--app="$url" --window-position=0,0)
[ -z "${DISPLAY:-}" ] && flags+=(--headless=new --hide-scrollbars)
# shellcheck disable=SC2206 # the extra flags are words
flags+=(${VELMORA_BROWSER_FLAGS:-})

browser=
finish() {
  local socket
  trap - TERM INT HUP EXIT
  if [ -n "$browser" ]; then
    kill -TERM "$browser" 2>/dev/null
    wait "$browser" 2>/dev/null
  fi
  # A killed browser leaves its socket's folder behind.
  socket=$(readlink "$profile/SingletonSocket")
  [[ $socket == "$browser_tmp"/org.chromium.Chromium.*/SingletonSocket ]] || socket=
  # In the background: the server's wait for this process is short, and a
  # program started on a loaded machine can take most of it.
  rm -rf "$devtools" "$profile" ${socket:+"${socket%/*}"} &
}
# Ends this script as the browser ended (STATUS as wait gives it): with its
# exit status, or killed by the same signal, re-raised without a core dump.
# A signal that does not end a process by default, or that this process
# blocks or ignores, leaves the exit status.
end_as() {
  local signal=$(($1 - 128))
  finish
  case $signal in
    17 | 18 | 19 | 20 | 21 | 22 | 23 | 28) ;;
    [1-9] | [12][0-9] | 3[01])
      ulimit -c 0
      kill -s "$signal" $$ ;;
  esac
  exit "$1"
}
trap 'end_as 143' TERM
trap 'end_as 130' INT
trap 'end_as 129' HUP
trap finish EXIT

# Ends with status 0 once the browser, spoken to over its DevTools pipe (one
# JSON text and a NUL each way), has no page left: a page that leaves closes
# its window after it reported TERMINATED. Ends with 1 should the browser go.
watch_pages() {
  exec node -e '
    const pages = new Set();
    let text = "";
    process.stdout.write(JSON.stringify({ id: 1, method: "Target.setDiscoverTargets", params: { discover: true } }) + "\0");
    process.stdin.setEncoding("utf8").on("data", (chunk) => {
      text += chunk;
      for (let end; (end = text.indexOf("\0")) >= 0; text = text.slice(end + 1)) {
        const { method, params } = JSON.parse(text.slice(0, end));
        if (method === "Target.targetCreated" && params.targetInfo.type === "page") pages.add(params.targetInfo.targetId);
        if (method === "Target.targetDestroyed" && pages.delete(params.targetId) && pages.size === 0) process.exit(0);
      }
    });
    process.stdin.on("end", () => process.exit(1));
  '
}

# The browser's own messages go to this script's output, save those it
# prints at every start and that tell nothing wrong: blank lines, Debian's
# wrapper tripping over its own test of /dev/shm, the probe for Vulkan drivers
# that a box without a GPU lacks, and the line that says DevTools listens,
# whose address is written to the DevTools file (its port file may not be
# written yet). FIFOs carry them and the DevTools pipe; each is opened in the
# order that the other side opens it, and removed once open.
noise='^$|: \[: .*: unexpected operator$|^Warning: vkCreateInstance|at CheckVkSuccessImpl'
fifos=("$VELMORA_BOX_RUN/chromium/$uid".{events,commands,answers})
events=${fifos[0]} commands=${fifos[1]} answers=${fifos[2]}
rm -f "${fifos[@]}"
mkfifo "${fifos[@]}"
TMPDIR=$browser_tmp XDG_CONFIG_HOME=$profile XDG_CACHE_HOME=$profile \
  setpriv --pdeathsig KILL -- "${VELMORA_CHROMIUM:-/usr/bin/chromium}" "${flags[@]}" --remote-debugging-pipe \
  3<"$commands" 4>"$answers" 2>"$events" &
browser=$!
watch_pages >"$commands" <"$answers" &
watcher=$!
exec 3<"$events"
rm -f "${fifos[@]}"
while IFS= read -r line <&3; do
  case "$line" in
    "DevTools listening on "*)
      address=${line#DevTools listening on ws://}
      printf 'http://%s\n' "${address%%/*}" > "$devtools.new" && mv "$devtools.new" "$devtools"
      break ;;
  esac
  [[ $line =~ $noise ]] || printf '%s\n' "$line" >&2
done
if [ ! -e "$devtools" ]; then
  echo "start_webkit.sh: the browser (${VELMORA_CHROMIUM:-/usr/bin/chromium}) ended before it served DevTools" >&2
  wait "$browser"
  status=$?
  end_as $((status == 0 ? 1 : status))
fi
grep --line-buffered -Ev "$noise" <&3 >&2 &
# The window ends when its page closed it (the watcher's 0), or with the
# browser (the watcher ends with 1 when the browser's pipe closes).
wait -n -p ended "$browser" "$watcher"
status=$?
if [ "$ended" = "$watcher" ]; then
  [ "$status" -eq 0 ] && exit 0
  wait "$browser"
  status=$?
fi
end_as "$status"
