# shellcheck shell=bash
# Sourced by the demo's shell tests.
# True once the command holds, for up to 20 s.
eventually() {
  local deadline=$((SECONDS + 20))
  until "$@"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.1
  done
}
