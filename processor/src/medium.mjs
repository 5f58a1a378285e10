// What yt-dlp says about a link, read once into a record that everything else can rely on. Much of yt-dlp's answer is
// copied from a web page, so nothing of it is taken on trust: not its types, its lengths nor its numbers.

import { stripVTControlCharacters, toUSVString } from 'node:util';

import { JobFailure } from './errors.mjs';

const titleLimit = 300;
const labelLimit = 100;
const codeLimit = 100;
const listLimit = 1_000;
const longestDuration = 10 * 365.25 * 24 * 3600;
const largestHeight = 32_768;
const largestRate = 1e9;
const preferenceLimit = 1e6;
// What yt-dlp takes an absent preference for.
const noPreference = -1;
const nestingLimit = 4;

// What can be turned into VTT and SRT. Chats and overlay comments come as "subtitles" too, in formats of their own.
const subtitleExtensions = ['vtt', 'srt', 'ass', 'ssa', 'ttml', 'dfxp'];

// The ways of delivery that yt-dlp masters by itself and over HTTPS; for others it would call further programs.
const protocols = [
  'https',
  'm3u8',
  'm3u8_native',
  'http_dash_segments',
  'ism',
  'f4m',
  'niconico_dmc',
  'bunnycdn',
  'soopvod',
];

/**
 * One stream that can be downloaded and played.
 * @typedef {object} Format
 * @property {string} url an address with the scheme https
 * @property {string} ext
 * @property {string} vcodec "none" without a picture, "" when it is not known
 * @property {string} acodec likewise for the sound
 * @property {number} [height]
 * @property {string} dynamicRange
 * @property {string} language
 * @property {number} preference the extractor's judgement; like the next three at its default where it has none
 * @property {number} languagePreference
 * @property {number} sourcePreference
 * @property {number} quality
 * @property {number} [tbr] kilobits per second of everything
 * @property {number} [abr] kilobits per second of the sound
 * @property {number} [bytes]
 * @property {Record<string, string>} headers what yt-dlp would send in a request for it
 * @property {object} source what yt-dlp itself said, to be handed back to it
 *
 * @typedef {object} SubtitleFile
 * @property {string} ext
 * @property {string} name
 * @property {object} source
 *
 * @typedef {Map<string, SubtitleFile[]>} SubtitleGroup by yt-dlp's key, which is a language code with additions
 *
 * @typedef {object} Medium
 * @property {string} title "" when it has none
 * @property {number} [duration] seconds
 * @property {string} language
 * @property {Format[]} formats worst first, as yt-dlp orders them
 * @property {SubtitleGroup} subtitles
 * @property {SubtitleGroup} captions made by a machine
 * @property {object} source
 */

/**
 * Reads the JSON that yt-dlp prints for a link.
 * @param {string} json
 * @returns {Medium}
 * @throws {JobFailure} when it is no such answer, or leads to nothing that can be saved
 */
export function readMedium(json) {
  const answer = onlyEntry(parseObject(json));
  refuseStream(answer);
  const given = listOf(answer.formats);
  const medium = {
    title: cleanText(answer.title, titleLimit),
    duration: cleanDuration(answer.duration),
    language: cleanText(answer.language, codeLimit),
    formats: given.map((format) => readFormat(format, answer)).filter(isPresent).slice(-listLimit),
    subtitles: readSubtitles(answer.subtitles),
    captions: readSubtitles(answer.automatic_captions),
    source: readSource(answer),
  };
  if (medium.formats.length + medium.subtitles.size + medium.captions.size === 0) throw nothingToSave(given);
  return medium;
}

/**
 * A length in seconds that a person could mean, or undefined.
 * @param {unknown} value
 */
export function cleanDuration(value) {
  return numberWithin(value, Number.MIN_VALUE, longestDuration);
}

/**
 * One line of text without anything invisible, at most `limit` characters long; "" for what is no text.
 * @param {unknown} value
 * @param {number} limit
 */
export function cleanText(value, limit) {
  if (typeof value !== 'string') return '';
  // A text is cut before it is worked on, so that its length costs nothing.
  const text = stripVTControlCharacters(toUSVString(value.slice(0, 10 * limit)));
  const line = text
    .replace(/[\p{Cc}\u2028\u2029\u200e\u200f\u202a-\u202e\u2066-\u2069]+/gu, ' ')
    .replace(/\s+/g, ' ')
    .trim();
  return line.slice(0, limit).replace(/[\ud800-\udbff]$/, '').trim();
}

/** @param {string} json @returns {Record<string, any>} */
function parseObject(json) {
  try {
    const value = JSON.parse(json);
    if (isObject(value)) return value;
  } catch {
    // What is not JSON is as good as any other answer that cannot be understood.
  }
  throw new JobFailure('What yt-dlp says about this link cannot be understood.');
}

// A page with a single medium is that medium.
/** @param {Record<string, any>} answer @returns {Record<string, any>} */
function onlyEntry(answer, depth = 0) {
  if (answer._type !== 'playlist' && answer._type !== 'multi_video') return answer;
  const entries = listOf(answer.entries);
  if (entries.length === 0 || depth === nestingLimit) throw new JobFailure('This link leads to no media.');
  if (entries.length === 1 && answer.playlist_count === 1) return onlyEntry(entries[0], depth + 1);
  throw new JobFailure('This link leads to a list of media. Use the link of one of them.');
}

/** @param {Record<string, any>} answer */
function refuseStream({ is_live, live_status }) {
  if (live_status === 'is_upcoming') throw new JobFailure('This live stream has not begun yet.');
  if (live_status === 'post_live') {
    throw new JobFailure('This live stream has just ended. Try again when the site offers its recording.');
  }
  if (is_live === true || live_status === 'is_live') {
    throw new JobFailure('A live stream cannot be saved before it has ended.');
  }
}

/** @param {Record<string, any>} format @param {Record<string, any>} answer @returns {Format | undefined} */
function readFormat(format, answer) {
  const { url, protocol } = format;
  if (!isHttps(url) || isProtected(format) || isPictureBoard(format)) return undefined;
  if (protocol !== undefined && !protocols.includes(protocol)) return undefined;
  const ext = /^[a-z0-9]{1,8}$/.test(format.ext) ? format.ext : 'media';
  return {
    url,
    ext,
    vcodec: cleanText(format.vcodec, codeLimit),
    acodec: cleanText(format.acodec, codeLimit),
    height: Number.isInteger(format.height) ? numberWithin(format.height, 1, largestHeight) : undefined,
    dynamicRange: cleanText(format.dynamic_range, codeLimit),
    language: cleanText(format.language, codeLimit),
    preference: preference(format.preference),
    languagePreference: preference(format.language_preference),
    sourcePreference: preference(format.source_preference),
    quality: preference(format.quality),
    tbr: numberWithin(format.tbr, 0, largestRate),
    abr: numberWithin(format.abr, 0, largestRate),
    bytes:
      numberWithin(format.filesize, 1, Number.MAX_SAFE_INTEGER) ??
      numberWithin(format.filesize_approx, 1, Number.MAX_SAFE_INTEGER),
    headers: readHeaders(format.http_headers ?? answer.http_headers),
    // yt-dlp would hand the other kind of stream list to ffmpeg, which then chooses by itself what to open.
    source: { ...format, ext, ...(protocol === 'm3u8' ? { protocol: 'm3u8_native' } : {}) },
  };
}

/** @param {Record<string, any>} format */
function isProtected(format) {
  return format.has_drm === true;
}

/** @param {Record<string, any>} format */
function isPictureBoard(format) {
  return format.protocol === 'mhtml' || format.ext === 'mhtml';
}

/** @param {unknown} group @returns {SubtitleGroup} */
function readSubtitles(group) {
  if (!isObject(group)) return new Map();
  const tracks = Object.entries(group)
    .filter(([key]) => key !== '' && cleanText(key, codeLimit) === key)
    .map(([key, files]) => /** @type {const} */ ([key, listOf(files).map(readSubtitleFile).filter(isPresent)]))
    .filter(([, files]) => files.length > 0);
  return new Map(tracks.slice(0, listLimit));
}

/** @param {Record<string, any>} file @returns {SubtitleFile | undefined} */
function readSubtitleFile(file) {
  if (!subtitleExtensions.includes(file.ext)) return undefined;
  if (!isHttps(file.url) && typeof file.data !== 'string') return undefined;
  return { ext: file.ext, name: cleanText(file.name, labelLimit), source: file };
}

/** @param {unknown} headers @returns {Record<string, string>} */
function readHeaders(headers) {
  if (!isObject(headers)) return {};
  /** @param {[string, unknown]} header */
  const isSafe = ([name, value]) => typeof value === 'string' && !/\p{Cc}/u.test(name + value);
  return Object.fromEntries(Object.entries(headers).filter(isSafe).slice(0, listLimit));
}

// What a download needs of an answer besides its streams. The page's address is not among it: with it yt-dlp would
// answer a failed download by reading the link again, which could lead to other formats than the chosen ones.
/** @param {Record<string, any>} answer */
function readSource(answer) {
  return {
    _type: 'video',
    id: cleanText(answer.id, labelLimit) || 'medium',
    title: 'medium',
    extractor: cleanText(answer.extractor, labelLimit) || 'generic',
    extractor_key: cleanText(answer.extractor_key, labelLimit) || 'Generic',
    http_headers: readHeaders(answer.http_headers),
  };
}

/** @param {Record<string, any>[]} formats */
function nothingToSave(formats) {
  if (formats.some(isProtected)) {
    return new JobFailure('This media is protected against copying (DRM) and cannot be saved.');
  }
  if (formats.some(({ url }) => typeof url === 'string' && /^http:/i.test(url))) {
    return new JobFailure('The site delivers this media without encryption only, so it is not fetched.');
  }
  return new JobFailure('This link leads to no media.');
}

/** @param {unknown} value */
function isHttps(value) {
  return typeof value === 'string' && /^https:\/\//i.test(value);
}

/** @param {unknown} value */
function preference(value) {
  return numberWithin(value, -preferenceLimit, preferenceLimit) ?? noPreference;
}

/** @param {unknown} value @param {number} least @param {number} greatest */
function numberWithin(value, least, greatest) {
  return typeof value === 'number' && value >= least && value <= greatest ? value : undefined;
}

/** @param {unknown} value @returns {Record<string, any>[]} */
function listOf(value) {
  return Array.isArray(value) ? value.filter(isObject) : [];
}

/** @param {unknown} value @returns {value is Record<string, any>} */
function isObject(value) {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

/** @template T @param {T | undefined} value @returns {value is T} */
function isPresent(value) {
  return value !== undefined;
}
