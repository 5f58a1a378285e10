// One line per event on standard output, which the helper appends to its log file. Callers never pass the session
// token, cookies or whole job identifiers.

/** @param {string} line */
export function log(line) {
  const oneLine = line.replace(/[\p{Cc}\u2028\u2029]+/gu, ' ').trim();
  process.stdout.write(`${new Date().toISOString()} ${oneLine}\n`);
}
