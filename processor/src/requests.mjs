// Reads and checks the bodies of requests. Everything that a request asks for and that cannot be done is refused
// here, before a job exists.

import { RequestError } from './errors.mjs';

const bodyLimit = 256 * 1024;
// One argument of a program may hold 128 KiB; no site has links that come near it.
const linkLimit = 32 * 1024;

const smuggleMark = '__youtubedl_smuggle';

const modes = /** @type {const} */ (['video', 'audio', 'subtitle']);
const browsers = /** @type {const} */ (['chrome', 'safari']);
const subtitleFormats = /** @type {const} */ (['vtt', 'srt']);

/**
 * What an analysis and a job have in common.
 * @typedef {object} MediaOrder
 * @property {string} link
 * @property {'chrome' | 'safari' | null} browserLogin
 *
 * @typedef {MediaOrder & { mode: 'video', quality: string }} VideoOrder
 * @typedef {MediaOrder & { mode: 'audio' }} AudioOrder
 * @typedef {MediaOrder & { mode: 'subtitle', trackId: string, subtitleFormat: 'vtt' | 'srt' }} SubtitleOrder
 * @typedef {VideoOrder | AudioOrder | SubtitleOrder} JobOrder
 */

/**
 * The JSON object in the body of `request`; throws RequestError when there is none.
 * @param {import('node:http').IncomingMessage} request
 */
export async function readBody(request) {
  const chunks = [];
  let size = 0;
  for await (const chunk of request) {
    size += chunk.length;
    // What is too large is read to its end all the same, so that the client is ready to read the answer.
    if (size <= bodyLimit) chunks.push(chunk);
  }
  if (size > bodyLimit) throw new RequestError(413, 'The request is too large.');
  return parseObject(Buffer.concat(chunks));
}

/**
 * @param {Record<string, unknown>} body
 * @returns {MediaOrder}
 */
export function readMediaRequest(body) {
  if (body.permissionConfirmed !== true) {
    throw new RequestError(400, 'Confirm that you own this media or have permission to use it.');
  }
  const { browserLogin = null } = body;
  const browser = oneOf(browsers, browserLogin);
  if (browserLogin !== null && !browser) {
    throw new RequestError(400, 'Browser access is possible with Chrome or Safari only.');
  }
  return { link: readLink(body.sourceUrl), browserLogin: browser ?? null };
}

/**
 * @param {Record<string, unknown>} body
 * @param {Offers} offers what the analyses have offered
 * @returns {JobOrder}
 */
export function readJobRequest(body, offers) {
  const media = readMediaRequest(body);
  const mode = oneOf(modes, body.mode);
  if (!mode) throw new RequestError(400, 'Choose video, audio or subtitle as the output.');
  if (mode === 'video') return { ...media, mode, quality: readQuality(body, media.link, offers) };
  if (mode === 'subtitle') return { ...media, mode, ...readTrack(body, media.link, offers) };
  return { ...media, mode };
}

/** What the analyses of this run have offered, by link. */
export class Offers {
  /** @type {Map<string, { qualities: Set<string>, trackIds: Set<string> }>} */
  #byLink = new Map();
  /** @type {Set<string>} */
  #everOffered = new Set();
  #limit;

  constructor(limit = 200) {
    this.#limit = limit;
  }

  /**
   * @param {string} link
   * @param {string[]} qualities
   * @param {string[]} trackIds
   */
  remember(link, qualities, trackIds) {
    this.#byLink.delete(link);
    this.#byLink.set(link, { qualities: new Set(qualities), trackIds: new Set(trackIds) });
    qualities.forEach((quality) => this.#everOffered.add(quality));
    const [oldest] = this.#byLink.keys();
    if (this.#byLink.size > this.#limit) this.#byLink.delete(oldest);
  }

  /**
   * A link that was edited after its analysis is unknown; the job itself finds out what that one has.
   * @param {string} link
   * @param {string} quality
   */
  hasQuality(link, quality) {
    return (this.#byLink.get(link)?.qualities ?? this.#everOffered).has(quality);
  }

  /**
   * @param {string} link
   * @param {string} trackId
   */
  hasTrack(link, trackId) {
    return this.#byLink.get(link)?.trackIds.has(trackId) ?? true;
  }
}

/**
 * @template {string} Word
 * @param {readonly Word[]} words
 * @param {unknown} value
 */
function oneOf(words, value) {
  return words.find((word) => word === value);
}

/**
 * @param {Buffer} bytes
 * @returns {Record<string, unknown>}
 */
function parseObject(bytes) {
  let value;
  try {
    value = JSON.parse(new TextDecoder('utf-8', { fatal: true }).decode(bytes));
  } catch {
    throw new RequestError(400, 'The request is not valid JSON.');
  }
  if (typeof value !== 'object' || value === null || Array.isArray(value)) {
    throw new RequestError(400, 'The request must be a JSON object.');
  }
  return value;
}

/**
 * The link as a browser would send it: trimmed, percent-encoded, the host in its ASCII form.
 * @param {unknown} text
 */
function readLink(text) {
  if (typeof text !== 'string') throw new RequestError(400, 'The request has no link.');
  if (text.length > linkLimit) throw new RequestError(400, 'The link is too long.');
  let url;
  try {
    url = new URL(text.trim());
  } catch {
    throw new RequestError(400, 'Enter a valid HTTPS link.');
  }
  // yt-dlp takes orders from such a fragment, which only yt-dlp itself is to give.
  if (url.hash.includes(smuggleMark)) url.hash = '';
  if (url.protocol !== 'https:') throw new RequestError(400, 'Only HTTPS links can be processed.');
  if (url.href.length > linkLimit) throw new RequestError(400, 'The link is too long.');
  return url.href;
}

/**
 * @param {Record<string, unknown>} body
 * @param {string} link
 * @param {Offers} offers
 */
function readQuality({ quality }, link, offers) {
  if (typeof quality !== 'string' || quality === '') throw new RequestError(400, 'Choose a video quality.');
  if (!offers.hasQuality(link, quality)) throw new RequestError(400, 'This video quality is not available.');
  return quality;
}

/**
 * @param {Record<string, unknown>} body
 * @param {string} link
 * @param {Offers} offers
 */
function readTrack({ subtitleLanguage, subtitleFormat = 'vtt' }, link, offers) {
  if (typeof subtitleLanguage !== 'string' || subtitleLanguage === '') {
    throw new RequestError(400, 'Choose a subtitle track.');
  }
  const format = oneOf(subtitleFormats, subtitleFormat);
  if (!format) throw new RequestError(400, 'Subtitles can be saved as VTT or SRT.');
  if (!offers.hasTrack(link, subtitleLanguage)) throw new RequestError(400, 'This subtitle track is not available.');
  return { trackId: subtitleLanguage, subtitleFormat: format };
}
