// SRT files as texts. Captions made by a machine roll: each of their cues repeats the line above the new one, and
// between two of them stands a very short cue with nothing new. A player that shows one cue at a time shows, and a
// reader reads, everything two or three times.

/** @typedef {{ start: number, end: number, lines: string[] }} Cue from and to in milliseconds */

const timing = /^(\d{2,}:\d{2}:\d{2}[,.]\d{3}) --> (\d{2,}:\d{2}:\d{2}[,.]\d{3})/;
// Cues that roll follow each other at once. A line that comes back later was said again.
const rollingGapMs = 100;

/**
 * The same captions with every line once.
 * @param {string} srt
 */
export function unroll(srt) {
  /** @type {Cue[]} */
  const kept = [];
  /** @type {Cue} */
  let shown = { start: 0, end: 0, lines: [] };
  for (const cue of parseCues(srt)) {
    const rolls = cue.start <= shown.end + rollingGapMs;
    const fresh = rolls ? withoutRepeated(cue.lines, shown.lines) : cue.lines;
    if (fresh.length > 0) kept.push({ ...cue, lines: fresh });
    shown = cue;
  }
  kept.forEach((cue, index) => {
    const next = kept[index + 1];
    if (next && next.start > cue.start) cue.end = Math.min(cue.end, next.start);
  });
  return kept.map(writeCue).join('\n');
}

/**
 * Whether a text in VTT or SRT says anything at all.
 * @param {string} text
 */
export function hasCues(text) {
  return /\d{2}[,.]\d{3}[ \t]+-->[ \t]+\d/.test(text);
}

/** @param {string} srt @returns {Cue[]} */
function parseCues(srt) {
  /** @type {Cue[]} */
  const cues = [];
  const lines = srt.split(/\r?\n/).map((line) => line.trim());
  lines.forEach((line, index) => {
    const [, start, end] = timing.exec(line) ?? [];
    if (start) return void cues.push({ start: milliseconds(start), end: milliseconds(end), lines: [] });
    // The number above a time belongs to the next cue.
    const isNumber = /^\d+$/.test(line) && timing.test(lines[index + 1] ?? '');
    if (line !== '' && !isNumber) cues.at(-1)?.lines.push(line);
  });
  return cues.filter((cue) => cue.lines.length > 0);
}

// What a cue begins with and what ended the one before is still on the screen.
/** @param {string[]} lines @param {string[]} shown */
function withoutRepeated(lines, shown) {
  for (let count = Math.min(lines.length, shown.length); count > 0; count -= 1) {
    const end = shown.slice(-count);
    if (end.every((line, index) => line === lines[index])) return lines.slice(count);
  }
  return lines;
}

/** @param {Cue} cue @param {number} index */
function writeCue({ start, end, lines }, index) {
  return `${index + 1}\n${stamp(start)} --> ${stamp(end)}\n${lines.join('\n')}\n`;
}

/** @param {string} text */
function milliseconds(text) {
  const [hours, minutes, seconds, rest] = text.split(/[:,.]/).map(Number);
  return ((hours * 60 + minutes) * 60 + seconds) * 1000 + rest;
}

/** @param {number} time */
function stamp(time) {
  const parts = [time / 3_600_000, (time / 60_000) % 60, (time / 1000) % 60];
  const clock = parts.map((part) => String(Math.floor(part)).padStart(2, '0')).join(':');
  return `${clock},${String(time % 1000).padStart(3, '0')}`;
}
