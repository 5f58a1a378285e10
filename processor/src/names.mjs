// The file name that is proposed for a result.

import { toUSVString } from 'node:util';

const byteLimit = 200;
const fallback = 'ZUNTO-download';

/**
 * A name that every common file system accepts: the cleaned title, `suffixes` joined by dots at its end.
 * @param {string} title
 * @param {...string} suffixes
 */
export function proposeFilename(title, ...suffixes) {
  const ending = suffixes.filter(Boolean).map((suffix) => `.${clean(suffix)}`).join('');
  const stem = shorten(clean(title), byteLimit - Buffer.byteLength(ending));
  return (stem || fallback) + ending;
}

/** @param {string} text */
function clean(text) {
  return (
    toUSVString(text)
      .normalize('NFC')
      // Control characters and those that turn the direction of writing can hide what a name really is.
      .replace(/[\p{Cc}\u200e\u200f\u202a-\u202e\u2028\u2029\u2066-\u2069\ufffd]+/gu, ' ')
      .replace(/[/\\:*?"<>|]+/g, '-')
      .replace(/\s+/g, ' ')
      .replace(/^[\s.-]+|[\s.-]+$/g, '')
  );
}

/** @param {string} text @param {number} limit */
function shorten(text, limit) {
  let size = 0;
  const kept = [...text].filter((character) => (size += Buffer.byteLength(character)) <= limit);
  return kept.join('').trimEnd();
}
