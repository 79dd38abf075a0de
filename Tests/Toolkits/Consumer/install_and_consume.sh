#!/usr/bin/env bash
# Installs a build into a folder of its own, and builds a toolkit's example against nothing but that.
#
#   install_and_consume.sh BUILD_FOLDER SOURCE_FOLDER COMPONENT
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
cmake -G Ninja -S "$2/Tests/Toolkits/Consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" -DCOMPONENT="$3" \
  -DEXAMPLES="$2/Examples/Toolkits" >/dev/null
cmake --build "$work/build" >/dev/null
