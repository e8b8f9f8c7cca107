#!/bin/sh
# Starts the Wi-Fi Display player. The box has no player of its own: the SDK's
# test program plays it (its card on the screen page says so);
# VELMORA_APP_PROGRAM names another program.
export VELMORA_DEMO_APP_NAME="${VELMORA_DEMO_APP_NAME:-Wi-Fi Display player}"
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
