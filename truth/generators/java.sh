#!/bin/bash
# java.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see OpenLoop.java.
set -eu
exec java "$(dirname "$0")/OpenLoop.java" "$1" "$2" "$3" "$4"
