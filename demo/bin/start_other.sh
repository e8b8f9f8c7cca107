#!/bin/sh
# Starts a native program on the SDK: the SDK's test program, or the program
# that VELMORA_APP_PROGRAM names.
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
