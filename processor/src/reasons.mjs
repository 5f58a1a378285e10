// Why a tool failed, in a sentence for the person who reads it in a window: no option of a command line, no path of
// a temporary file, no name of a class.

import { cleanText } from './medium.mjs';

const messageLimit = 300;
const chooseLogin = 'Choose a login under Access.';

// What a tool says, and what it means here. The first that fits counts.
/** @type {[RegExp, string][]} */
const knownReasons = [
  [/no space left on device|errno 28\b|disk quota exceeded/i, 'There is no space left on the disk.'],
  [/could not find (\w+) cookies database/i, 'No profile of this browser was found on this computer.'],
  [/unsupported platform: \w+/i, 'This browser keeps no login that can be read on this computer.'],
  [
    /operation not permitted.*cookies/i,
    "The browser's logins cannot be read: macOS has to allow it, in the privacy settings under Full Disk Access.",
  ],
  [
    /could not copy .*cookie|database is locked|permission denied.*cookies|(failed|unable) to (decrypt|read) .*cookie/i,
    "The browser's logins cannot be read while it keeps them locked. Quit the browser and try again.",
  ],
  [/\bDRM\b|copy.?protect/i, 'This media is protected against copying (DRM) and cannot be saved.'],
  [
    /not a bot|captcha|confirm your age|age.?(restricted|verification|gate)|inappropriate for some users/i,
    `The site asks who is watching, to check the age or to keep robots out. ${chooseLogin}`,
  ],
  [
    /sign in|log ?in (required|to)|logged.?in users|only available for registered users|use --cookies|--username/i,
    `The site shows this media to its users only. ${chooseLogin}`,
  ],
  [/HTTP Error 429|too many requests|rate.?limit/i, 'The site refuses further requests for a while. Try again later.'],
  [
    /unable to extract|nsig extraction failed|signature extraction failed|needs? to be reloaded/i,
    'The site has changed and this yt-dlp does not understand it. Install a newer yt-dlp.',
  ],
  [/Unsupported URL/i, 'This link is not supported: no video or sound was found behind it.'],
  [/unable to connect to proxy/i, 'The site cannot be reached.'],
  [/timed? ?out/i, 'The site does not answer. Try again later.'],
  [/invalid data found|moov atom not found|error opening input/i, 'What the site delivered cannot be read.'],
];

/**
 * The last error of a tool as a sentence for the user.
 * @param {{ code: number | null, signal: string | null, stderr: string }} end
 * @param {{ name?: string, loggedIn?: boolean }} [circumstances]
 */
export function readableError({ code, signal, stderr }, { name = 'yt-dlp', loggedIn = false } = {}) {
  const lines = stderr
    .split(/[\r\n]+/)
    .map((line) => cleanText(line, 10 * messageLimit))
    .filter(Boolean);
  const errors = lines.filter((line) => /^([\w.-]+: )?error:/i.test(line));
  const last = errors.pop() ?? lines.filter((line) => !/^warning:/i.test(line)).pop();
  const sentence = last && (explain(last, loggedIn) ?? polish(last));
  if (sentence) return sentence;
  return signal ? `${name} was ended by ${signal}.` : `${name} ended with status ${code} and gave no reason.`;
}

/** @param {string} line @param {boolean} loggedIn */
function explain(line, loggedIn) {
  // What yt-dlp says to those who could report a fault says nothing about this one.
  const own = line.replace(/;?\s*please report this issue on .*$/i, '');
  const reason = knownReasons.find(([pattern]) => pattern.test(own))?.[1];
  return loggedIn ? reason?.replace(chooseLogin, 'The chosen login does not suffice.') : reason;
}

/** @param {string} line */
function polish(line) {
  const plain = line
    .replace(/^([\w.-]+: )?error:\s*/i, '')
    // Who speaks, be it an extractor with an identifier of the media or a part of ffmpeg, means nothing to the user.
    .replace(/^\[[^\]]+\]\s+(\S+: (?=\S))?/, '')
    .replace(/;?\s*please report this issue on .*$/i, '')
    .replace(/\s*\(caused by .*$/, '')
    .replace(/<urlopen error (.*)>/, '$1')
    .replace(/\[SSL: [A-Z_]+\]\s*/g, '')
    .replace(/\[Errno -?\d+\]\s*/g, '')
    .replace(/\s*\(_ssl\.c:\d+\)/g, '')
    .replace(/\b(\w+\.)*\w+(Error|Exception|Warning)\b(\([^()]*\))?:?\s*/g, '')
    .replace(/:?\s*["']?\/(?:[^\s"':]+\/)+[^\s"':]*["']?/g, '')
    .trim();
  const sentences = plain.split(/(?<=[.!?])\s+/);
  // Advice on the options of a command line is of no use in a window.
  const useful = sentences.filter((text) => !/(^|\s)--?[a-z]/.test(text) && !/^(also )?see\b.*https?:/i.test(text));
  return asSentence(cleanText((useful.length > 0 ? useful : sentences).join(' '), messageLimit + 1));
}

/** @param {string} text */
function asSentence(text) {
  if (text === '') return '';
  const whole = text.length > messageLimit ? `${cleanText(text, messageLimit)}…` : text;
  const sentence = whole[0].toUpperCase() + whole.slice(1);
  return /[.!?…]$/.test(sentence) ? sentence : `${sentence}.`;
}
