#!/usr/bin/env bash
# Runs a program in a network of its own, with nothing but the loopback interface: the helper's port is one per
# network.
#   run_on_private_network.sh PROGRAM [ARGUMENT ...]
# Where the machine allows no such network, as in many containers, its own one serves while the port is free.
set -eu
port=43127

# Root needs no user namespace, which some machines forbid.
for map in '' --map-root-user; do
  # shellcheck disable=SC2086  # no word where there is none
  if unshare $map --net true 2>/dev/null; then
    exec unshare $map --net sh -c 'ip link set lo up && exec "$@"' sh "$@"
  fi
done
if (: <>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
  echo "$0: port $port is in use, probably by a helper that is running, and no private network is allowed" >&2
  exit 1
fi
exec "$@"
