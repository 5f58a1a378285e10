// What can be learnt about another process without being its parent.

import { readFileSync } from 'node:fs';

/**
 * What tells a process from a later one with the same number: its start time where /proc gives it, null elsewhere.
 * A process that has ended but was never reaped counts as gone.
 */
export function identify(pid) {
  try {
    process.kill(pid, 0);
  } catch (error) {
    if (error.code !== 'EPERM') return { alive: false, startTime: null };
  }
  let stat;
  try {
    stat = readFileSync(`/proc/${pid}/stat`, 'latin1');
  } catch {
    return { alive: true, startTime: null };
  }
  // The second field is the program's name in parentheses and may itself hold blanks and parentheses.
  const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
  const [processState, startTime] = [fields[0], fields[19]];
  return { alive: processState !== 'Z' && processState !== 'X', startTime };
}
