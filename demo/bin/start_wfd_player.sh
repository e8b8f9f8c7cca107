#!/bin/sh
# Starts the Wi-Fi Display player. The box has no player of its own: the SDK's
# test program plays it; VELMORA_APP_PROGRAM names another program.
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
