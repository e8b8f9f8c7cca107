#!/bin/sh
# Starts an AIR application. The box has no AIR runtime: in a box the browser
# plays the application's page (start_webkit.sh), elsewhere the SDK's test
# program, or the program that VELMORA_APP_PROGRAM names.
if [ -z "${VELMORA_BOX_RUN:-}" ]; then
  exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
fi
exec start_webkit.sh
