#!/bin/sh
# Runs a program in a network of its own, with nothing but the loopback interface: the helper's port is one per
# network.
#   run_on_private_network.sh PROGRAM [ARGUMENT ...]
# Root needs no user namespace, which some machines forbid.
set -eu
if [ "$(id -u)" -eq 0 ]; then map=; else map=--map-root-user; fi
# shellcheck disable=SC2086  # no word where there is none
exec unshare $map --net sh -c 'ip link set lo up && exec "$@"' sh "$@"
