// What can be learnt about another process without being its parent.

import { readFileSync, readdirSync } from 'node:fs';

/**
 * What tells a process from a later one with the same number: its start time where /proc gives it, null elsewhere.
 * A process that has ended but was never reaped counts as gone.
 * @param {number} pid
 * @returns {{ alive: boolean, startTime: string | null }}
 */
export function identify(pid) {
  try {
    process.kill(pid, 0);
  } catch (error) {
    if (error.code !== 'EPERM') return { alive: false, startTime: null };
  }
  const stat = readStat(pid);
  return stat ? { alive: stat.alive, startTime: stat.startTime } : { alive: true, startTime: null };
}

/**
 * Whether a process of this group is alive. One that has ended but was never reaped cannot be ended any further.
 * @param {number} group
 */
export function groupLives(group) {
  try {
    process.kill(-group, 0);
  } catch (error) {
    if (error.code !== 'EPERM') return false;
  }
  try {
    const members = readdirSync('/proc').map((name) => (/^[0-9]+$/.test(name) ? readStat(name) : null));
    return members.some((stat) => stat?.alive && stat.group === group);
  } catch {
    return true;
  }
}

/**
 * What /proc tells about a process; null where there is none, or none such.
 * @param {number | string} pid
 */
function readStat(pid) {
  let text;
  try {
    text = readFileSync(`/proc/${pid}/stat`, 'latin1');
  } catch {
    return null;
  }
  // The second field is the program's name in parentheses and may itself hold blanks and parentheses.
  const fields = text.slice(text.lastIndexOf(')') + 2).split(' ');
  return { alive: fields[0] !== 'Z' && fields[0] !== 'X', group: Number(fields[2]), startTime: fields[19] };
}
