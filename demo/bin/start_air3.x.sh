#!/bin/sh
# Starts an AIR application. The box has no AIR runtime: the SDK's test
# program plays the application; VELMORA_APP_PROGRAM names another program.
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
