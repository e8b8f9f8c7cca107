#!/bin/sh
# Starts a web page, web application or browser window. The program reads its
# identity (VELMORA_APP_PARAMETERS) and the server's name (VELMORA_APP_HOSTNAME)
# from the environment. Until the browser joins the box, the SDK's test
# program stands in for the page; VELMORA_APP_PROGRAM names another program.
exec "${VELMORA_APP_PROGRAM:-velmora-test-app}"
