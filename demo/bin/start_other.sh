#!/bin/sh
# Starts a native program on the SDK. In a demo box (VELMORA_BOX_RUN set) the
# launch's application URL names the program, a file of the box's program
# folder ($VELMORA_ROOT/usr/local/bin); otherwise, or when there is no such
# program, the SDK's test program runs, or the program VELMORA_APP_PROGRAM names.
if [ -n "${VELMORA_BOX_RUN:-}" ]; then
  program=$(printf '%s' "${VELMORA_APP_PARAMETERS:-}" |
    sed -n 's/.*"applicationURL" *: *"\([A-Za-z0-9._-]*\)[?"].*/\1/p')
  if [ -n "$program" ] && [ -x "${VELMORA_ROOT:-}/usr/local/bin/$program" ]; then
    exec "${VELMORA_ROOT:-}/usr/local/bin/$program"
  fi
fi
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
