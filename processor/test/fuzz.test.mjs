// Bodies of requests and answers of yt-dlp as nobody would write them: made of what the rules know, then bent. A seed
// decides everything. A failure names the seed and the number of its case; both replay it:
//
//   ZUNTO_FUZZ_SEED=7 node --test processor/test/fuzz.test.mjs
//   ZUNTO_FUZZ_SECONDS=60 node --test processor/test/fuzz.test.mjs    # another seed each time, for so long

import assert from 'node:assert/strict';
import { Readable } from 'node:stream';
import { test } from 'node:test';

import { JobFailure, RequestError } from '../src/errors.mjs';
import { chooseForAudio, chooseForVideo, qualitiesOf } from '../src/formats.mjs';
import { readMedium } from '../src/medium.mjs';
import { proposeFilename } from '../src/names.mjs';
import { Offers, readBody, readJobRequest, readMediaRequest } from '../src/requests.mjs';
import { describeSubtitles, findTrack } from '../src/subtitles.mjs';
import { parseFile, parseProgress } from '../src/ytdlp.mjs';

const seconds = Number(process.env.ZUNTO_FUZZ_SECONDS ?? 0);
const firstSeed = Number(process.env.ZUNTO_FUZZ_SEED ?? (seconds ? Date.now() % 2 ** 32 : 1));
const casesOfASeed = 3000;

const request = {
  sourceUrl: 'https://example.com/watch?v=1#t',
  permissionConfirmed: true,
  browserLogin: 'chrome',
  mode: 'subtitle',
  quality: '360p',
  subtitleLanguage: 'subtitle:en',
  subtitleFormat: 'srt',
};

const format = {
  url: 'https://media.example/1',
  format_id: '18',
  ext: 'mp4',
  protocol: 'https',
  vcodec: 'avc1.4d',
  acodec: 'mp4a.40.2',
  height: 360,
  tbr: 500.5,
  abr: 96,
  filesize: 1e6,
  preference: -1,
  language: 'en',
  language_preference: 10,
  http_headers: { Accept: '*/*' },
  has_drm: false,
};

const answer = {
  _type: 'video',
  id: 'x',
  title: 'A film',
  duration: 12.5,
  language: 'en',
  extractor: 'generic',
  live_status: 'not_live',
  formats: [format, { ...format, vcodec: 'none' }, { ...format, acodec: 'none', height: 1080, ext: 'webm' }],
  subtitles: { en: [{ ext: 'vtt', url: 'https://media.example/en.vtt', name: 'English' }] },
  automatic_captions: {
    'de-orig': [{ ext: 'srt', data: '1' }],
    de: [{ ext: 'ttml', url: 'https://media.example/de' }],
  },
  entries: [{ _type: 'playlist', playlist_count: 1, entries: [] }],
};

const odd = [
  null, true, false, 0, -0, -1, 1e300, -1e300, 1.5, Number.MAX_SAFE_INTEGER + 2, [], {}, [null], [[[[]]]], { length: -1 },
  '', ' ', '0', 'none', 'NaN', '__proto__', 'constructor', 'a\u0000b', '\ud800', '\u202e', 'é', '中'.repeat(200), '--exec',
  'https://', 'http://x/', 'https://[::1]/', 'https://a:b@c/?#__youtubedl_smuggle=1', 'file:///etc/passwd', '../../x',
  'playlist', 'url', 'm3u8', 'mhtml', 'is_live', 'is_upcoming', 'video', 'audio', 'subtitle', 'vtt', 'safari',
];

// A small generator of good quality (mulberry32), so that a seed means the same on every machine.
function random(seed) {
  let state = seed >>> 0;
  return (bound) => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) % bound;
  };
}

const pick = (below, list) => list[below(list.length)];

// A value like `value` in which something is missing, doubled, swapped or of another kind.
function bent(below, value) {
  if (below(12) === 0) return structuredClone(pick(below, odd));
  if (Array.isArray(value)) {
    const items = value.flatMap((item) => Array(pick(below, [0, 1, 1, 1, 1, 2])).fill(item));
    return items.map((item) => bent(below, item));
  }
  if (typeof value === 'object' && value !== null) {
    const entries = Object.entries(value).filter(() => below(10) > 0);
    if (below(8) === 0) entries.push([String(pick(below, odd)), pick(below, odd)]);
    const bentEntry = ([key, item]) => [below(40) ? key : bentText(below, key), bent(below, item)];
    return Object.fromEntries(entries.map(bentEntry));
  }
  if (typeof value === 'number') return below(4) ? value : value * pick(below, [-1, 0, 0.1, 1e9, 1e300]);
  return typeof value === 'string' && below(3) === 0 ? bentText(below, value) : value;
}

function bentText(below, text) {
  const place = below(text.length + 1);
  const inserted = String(pick(below, odd) ?? String.fromCharCode(below(0x10000)));
  return text.slice(0, place) + inserted + text.slice(place + below(3));
}

// JSON that is cut, doubled or has a wrong byte in it, now and then.
function bytesOf(below, value) {
  const bytes = Buffer.from(JSON.stringify(value) ?? '');
  if (below(5) > 0 || bytes.length === 0) return bytes;
  if (below(2)) bytes[below(bytes.length)] = below(256);
  return below(2) ? bytes.subarray(0, below(bytes.length)) : bytes;
}

async function outcomeOf(work, ...expected) {
  try {
    return { value: await work() };
  } catch (failure) {
    if (!expected.some((kind) => failure instanceof kind)) throw failure;
    assert.ok(failure.message.length > 0, 'a failure says why');
    return { failure };
  }
}

async function bendRequest(below) {
  const offers = new Offers();
  if (below(2)) offers.remember('https://example.com/watch?v=1#t', ['360p'], ['subtitle:en']);
  const bytes = bytesOf(below, bent(below, request));
  const cut = below(bytes.length + 1);
  const { value: body, failure } = await outcomeOf(
    () => readBody(Readable.from([bytes.subarray(0, cut), bytes.subarray(cut)])), RequestError,
  );
  if (failure) return assert.equal(failure.status, 400);
  for (const read of [readMediaRequest, readJobRequest]) {
    const { value: order, failure: refusal } = await outcomeOf(() => read(body, offers), RequestError);
    if (refusal) {
      assert.equal(refusal.status, 400);
      continue;
    }
    assert.equal(body.permissionConfirmed, true);
    assert.match(order.link, /^https:\/\/[^\s]+$/);
    assert.ok(!order.link.includes('__youtubedl_smuggle') || !new URL(order.link).hash.includes('smuggle'));
    assert.ok([null, 'chrome', 'safari'].includes(order.browserLogin));
    if (order.mode === 'subtitle') assert.ok(['vtt', 'srt'].includes(order.subtitleFormat) && order.trackId !== '');
    if (order.mode === 'video') assert.equal(typeof order.quality, 'string');
  }
}

async function bendAnswer(below) {
  const json = bytesOf(below, bent(below, answer)).toString();
  const { value: medium } = await outcomeOf(() => readMedium(json), JobFailure);
  if (!medium) return;
  for (const one of medium.formats) assert.match(one.url, /^https:\/\//i);
  assert.ok(medium.duration === undefined || (medium.duration > 0 && Number.isFinite(medium.duration)));
  const qualities = qualitiesOf(medium);
  assert.equal(new Set(qualities).size, qualities.length);
  for (const quality of qualities) {
    assert.match(quality, /^\d+(\.\d+)?p$/);
    assert.ok(chooseForVideo(medium, quality), `${quality} is offered and there`);
  }
  chooseForAudio(medium);
  const { tracks, recommendedSubtitleId } = describeSubtitles(medium);
  for (const { id, label } of tracks) {
    assert.ok(findTrack(medium, id, 'vtt'), `${id} is offered and there`);
    assert.ok(label.length > 0);
  }
  assert.ok(tracks.length === 0 ? !recommendedSubtitleId : tracks.some(({ id }) => id === recommendedSubtitleId));
  const name = proposeFilename(medium.title, 'mp4');
  assert.ok(Buffer.byteLength(name) <= 200 && !/[/\p{Cc}]/u.test(name) && name.endsWith('.mp4'), name);
}

function bendLine(below) {
  const fields = { status: 'finished', downloaded_bytes: 5, total_bytes: 10, total_bytes_estimate: 11.5 };
  const line = (mark, value) => {
    const text = `${mark} 18 ${JSON.stringify(bent(below, value))}`;
    return below(3) ? text : bentText(below, text);
  };
  const progress = parseProgress(line('@progress', fields));
  for (const number of progress ? [progress.done, progress.total, progress.estimate] : []) {
    assert.ok(number === null || (number >= 0 && Number.isFinite(number)));
  }
  const file = parseFile(line('@file', 'video.mp4'));
  assert.ok(file === null || typeof file.file === 'string');
}

const bends = {
  'the body of a request': bendRequest,
  'an answer of yt-dlp': bendAnswer,
  'a line of yt-dlp': bendLine,
};

for (const [what, bend] of Object.entries(bends)) {
  test(`${what} is understood or refused in words, whatever it is`, async (context) => {
    const end = performance.now() + seconds * 1000;
    let seed = firstSeed;
    let cases = 0;
    do {
      const below = random(seed);
      for (let number = 0; number < casesOfASeed; number += 1, cases += 1) {
        try {
          await bend(below);
        } catch (error) {
          error.message = `seed ${seed}, case ${number}: ${error.message}`;
          throw error;
        }
      }
      seed += 1;
    } while (performance.now() < end);
    context.diagnostic(`${cases} cases from seed ${firstSeed}`);
  });
}
