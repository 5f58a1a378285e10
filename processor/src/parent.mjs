// Notices that the helper is gone, however it ended. A helper that was killed cannot say goodbye, so it is looked
// for twice a second.

import { identify } from './processes.mjs';

const intervalMs = 500;

const system = { look: identify, ownParent: () => process.ppid, everyMs: intervalMs };

/**
 * Calls `onGone` once when process `pid` has ended, at once when it already has.
 * @param {number} pid
 * @param {() => void} onGone
 * @param {typeof system} [world] how processes are looked at and how often
 */
export function watchParent(pid, onGone, world = system) {
  const isOwnParent = world.ownParent() === pid;
  const { startTime } = world.look(pid);
  const isGone = () => {
    // An orphan gets another parent at once, even while the dead helper still waits to be reaped.
    if (isOwnParent && world.ownParent() !== pid) return true;
    const now = world.look(pid);
    // Another start time means that the number has passed on to another process.
    return !now.alive || now.startTime !== startTime;
  };
  const timer = setInterval(check, world.everyMs);
  function check() {
    if (!isGone()) return;
    clearInterval(timer);
    onGone();
  }
  check();
}
