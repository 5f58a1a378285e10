#!/bin/sh
# Runs the macOS program in a bundle of its own, with a network of its own: its port is fixed.
#   run_program.sh PROGRAM SCRIPTED_PROCESSOR DAY PROCESSORS [ARGUMENT ...]
#     DAY         what the robot does (see robot.mm)
#     PROCESSORS  how many processors the helper starts on it, all of which it must interrupt
set -eu
program=$1
processor=$2
export ZUNTO_ROBOT_DAY="$3"
processors=$4
shift 4

bundle="$HOME/ZUNTO Helper.app"
mkdir -p "$bundle/Resources/runtime/bin" "$bundle/Resources/processor/src"
cp "$program" "$bundle/ZUNTO Helper"
cp "$processor" "$bundle/Resources/processor/src/index.mjs"
ln -s "$(command -v node)" "$bundle/Resources/runtime/bin/node"
for tool in yt-dlp ffmpeg ffprobe; do ln -s /bin/true "$bundle/Resources/runtime/bin/$tool"; done

# Proxies that nobody offers: the processor is asked and told of itself without them.
export http_proxy=http://127.0.0.1:1 all_proxy=http://127.0.0.1:1 NO_PROXY=a.example
unset no_proxy

status=0
"$bundle/ZUNTO Helper" "$@" >"$HOME/steps" || status=$?
cat "$HOME/steps"
[ "$status" = 0 ] || { echo "FAILED: the program ended with status $status"; exit 1; }
grep -q "^AppKit program: " "$HOME/steps" || { echo "FAILED: the program ended before the robot was done"; exit 1; }

log="$HOME/Library/Logs/ZUNTO Helper/helper.log"
grep -q listening "$log" || { echo "FAILED: the processor's output is not in $log"; exit 1; }
grep -q "exempt: a.example,127.0.0.1$" "$log" || { echo "FAILED: the processor does not know what is exempt from proxies"; exit 1; }
tries=0
while [ "$tries" -lt 20 ]; do
  [ "$(grep -c interrupted "$log")" = "$processors" ] && exit 0
  tries=$((tries + 1))
  sleep 0.1
done
echo "FAILED: not every processor was interrupted"
exit 1
