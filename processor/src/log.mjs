// One line per event on standard output, which the helper appends to its log file. Callers never pass the session
// token, cookies or whole job identifiers.

export function log(line) {
  const oneLine = String(line).replace(/[\u0000-\u001f\u007f\u2028\u2029]+/g, ' ').trim();
  process.stdout.write(`${new Date().toISOString()} ${oneLine}\n`);
}
