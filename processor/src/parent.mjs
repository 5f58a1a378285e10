// Notices that the helper is gone, however it ended. A helper that was killed cannot say goodbye, so it is looked
// for twice a second.

import { identify } from './processes.mjs';

const intervalMs = 500;

/** Calls `onGone` once when process `pid` has ended, at once when it already has. */
export function watchParent(pid, onGone) {
  const isOwnParent = process.ppid === pid;
  const { startTime } = identify(pid);
  const isGone = () => {
    // An orphan gets another parent at once, even while the dead helper still waits to be reaped.
    if (isOwnParent && process.ppid !== pid) return true;
    const now = identify(pid);
    return !now.alive || now.startTime !== startTime;
  };
  const timer = setInterval(check, intervalMs);
  function check() {
    if (!isGone()) return;
    clearInterval(timer);
    onGone();
  }
  check();
}
