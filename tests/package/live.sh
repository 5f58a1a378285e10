#!/usr/bin/env bash
# The package's life on a bare Debian, as root, at the top of a clone of this tree: what scripts/bare runs. It changes
# the system that it runs on.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
source scripts/setup.sh
[ ! -e /usr/bin/zunto-helper ] || die "a helper is installed here; this is for a system that nobody uses"
install_packages python3
exec python3 tests/package/live.py
