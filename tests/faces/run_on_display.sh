#!/bin/sh
# Runs a program on a virtual display of its own, with a private home and an address of a session bus where none is:
# without any, the bus library would look for one on the display.
#   run_on_display.sh PROGRAM [ARGUMENT ...]
# A program that hangs is killed after three minutes: one that tracks a menu does not listen to SIGTERM.
set -eu

world=$(mktemp -d)
xvfb=
finish() {
  if [ -n "$xvfb" ]; then kill "$xvfb" 2>/dev/null || true; fi
  rm -rf "$world"
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

mkfifo "$world/display"
# A server that reset itself after its last client, between two cases, would refuse the next one for a moment.
Xvfb -displayfd 3 -screen 0 1280x900x24 -nolisten tcp -noreset 3>"$world/display" 2>"$world/xvfb.log" &
xvfb=$!
read -r number <"$world/display"

mkdir -p "$world/home" "$world/runtime" "$world/tmp"
chmod 700 "$world/runtime"
# GNUstep asks the account for its home, not the environment.
if [ -r /etc/GNUstep/GNUstep.conf ]; then
  sed "s|^GNUSTEP_USER_\(.*\)=\(.*\)|GNUSTEP_USER_\1=$world/home/\2|" /etc/GNUstep/GNUstep.conf >"$world/gnustep.conf"
  export GNUSTEP_CONFIG_FILE="$world/gnustep.conf"
fi

status=0
env -u WAYLAND_DISPLAY -u LANGUAGE DBUS_SESSION_BUS_ADDRESS="unix:path=$world/runtime/no-bus" \
  DISPLAY=":$number" HOME="$world/home" XDG_RUNTIME_DIR="$world/runtime" TMPDIR="$world/tmp" LC_ALL=C.UTF-8 \
  timeout -k 5 180 "$@" || status=$?
exit "$status"
