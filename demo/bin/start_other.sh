#!/bin/sh
# Starts a native program on the SDK. In a demo box (VELMORA_BOX_RUN set) the
# launch's application URL names the program, a file of the box's program
# folder ($VELMORA_ROOT/usr/local/bin); otherwise, or when there is no such
# program, the SDK's test program runs, or the program VELMORA_APP_PROGRAM names.
# The name is cut out of the parameters by the shell itself: no subshell and
# no further program before the exec.
if [ -n "${VELMORA_BOX_RUN:-}" ]; then
  parameters=${VELMORA_APP_PARAMETERS:-}
  program=
  case $parameters in
  *'"applicationURL"'*)
    program=${parameters#*'"applicationURL"'*:*'"'}
    program=${program%%[?\"]*}
    case $program in *[!A-Za-z0-9._-]*) program= ;; esac ;;
  esac
  if [ -n "$program" ] && [ -x "${VELMORA_ROOT:-}/usr/local/bin/$program" ]; then
    exec "${VELMORA_ROOT:-}/usr/local/bin/$program"
  fi
  echo "start_other.sh: no program '$program' in the box's program folder; the SDK's test program stands in" >&2
fi
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
