#!/usr/bin/env bash
# Compiles Objective-C++ sources with automatic reference counting, without making code of them: this system's
# runtime has no support for it, the compiler knows all its rules.
#   arc_check.sh SOURCE ... -- COMPILER FLAG ...
set -eu
sources=()
while [ "$1" != -- ]; do
  sources+=("$1")
  shift
done
shift
for source in "${sources[@]}"; do
  "$@" -fobjc-arc -fobjc-runtime=gnustep-2.0 -fsyntax-only -x objective-c++ "$source"
done
[ ${#sources[@]} -gt 0 ]
echo "ARC: ${#sources[@]} sources compiled"
