#!/bin/sh
# Starts a web application that draws with GL (and every web type when
# VELMORA_USE_NEW_WEBKIT is set): the web launch script with WebGL drawn in
# software, as a box without a GPU must.
VELMORA_BROWSER_FLAGS="--use-angle=swiftshader --enable-unsafe-swiftshader --ignore-gpu-blocklist ${VELMORA_BROWSER_FLAGS:-}" \
  exec start_webkit.sh
