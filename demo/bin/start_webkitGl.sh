#!/bin/sh
# Starts a web application that draws with GL (and every web type when
# VELMORA_USE_NEW_WEBKIT is set). Until the browser joins the box, the SDK's
# test program stands in for the page; VELMORA_APP_PROGRAM names another program.
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
