#!/usr/bin/env bash
# Installs a build into a folder of its own, and builds and runs a host against nothing but that.
#
#   install_and_consume.sh BUILD_FOLDER SOURCE_FOLDER CXX_FLAGS
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
cmake -G Ninja -S "$2/Tests/Package/Consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_FLAGS="$3" >/dev/null
cmake --build "$work/build" >/dev/null
[[ $("$work/build/consumer" "$work/state" 2>/dev/null) == green ]]
