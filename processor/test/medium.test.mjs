import assert from 'node:assert/strict';
import { test } from 'node:test';

import { cleanText, readMedium } from '../src/medium.mjs';
import { describeSubtitles } from '../src/subtitles.mjs';

const url = 'https://media.example/file';
const format = { url, ext: 'mp4', vcodec: 'avc1', acodec: 'mp4a.40.2', height: 360 };
const read = (answer) => readMedium(JSON.stringify({ formats: [format], ...answer }));

function failureOf(json) {
  try {
    readMedium(json);
  } catch (error) {
    return error.message;
  }
  return assert.fail(`${json.slice(0, 80)} was taken for a medium`);
}

for (const json of ['', 'null', '[]', '[{}]', '5', '"text"', 'NaN', '{"duration":NaN,"formats":[]}', '{"formats":']) {
  test(`an answer that is no object of JSON fails in words: ${json}`, () => {
    assert.equal(failureOf(json), 'What yt-dlp says about this link cannot be understood.');
  });
}

for (const answer of [
  {},
  { formats: [null] },
  { formats: 5 },
  { formats: { 0: format } },
  { formats: [{ ...format, url: 7 }] },
  { formats: [{ ...format, url: 'file:///etc/passwd' }] },
  { formats: [{ ...format, protocol: 'rtmp' }] },
  { _type: 'url', url },
  { _type: 'playlist', playlist_count: 1, entries: 5 },
  { _type: 'playlist', playlist_count: 1, entries: [null] },
  { subtitles: { en: [{ ext: 'vtt' }, null, { ext: 'json3', url }] } },
]) {
  const json = JSON.stringify(answer);
  test(`an answer without anything to save fails in words: ${json}`, () => {
    assert.equal(failureOf(json), 'This link leads to no media.');
  });
}

test('a playlist that only holds itself again fails instead of going on for ever', () => {
  const list = (entry) => ({ _type: 'playlist', playlist_count: 1, entries: [entry] });
  const nested = (depth) => list(depth ? nested(depth - 1) : { formats: [format] });
  assert.equal(readMedium(JSON.stringify(nested(2))).formats.length, 1);
  assert.equal(failureOf(JSON.stringify(nested(50))), 'This link leads to no media.');
});

test('a duration that nobody could mean is absent', () => {
  const tenYears = 10 * 365.25 * 24 * 3600;
  for (const duration of [0, -1, 1e300, tenYears + 1, '10', null, [10], true]) {
    assert.equal(read({ duration }).duration, undefined, String(duration));
  }
  for (const duration of [0.5, 10, tenYears]) assert.equal(read({ duration }).duration, duration);
  assert.equal(readMedium(`{"duration":1e999,"formats":[${JSON.stringify(format)}]}`).duration, undefined);
});

test('a title is one visible line of at most 300 characters', () => {
  assert.equal(read({ title: ' \u001b[31mA\u0000 \r\n b\u202e\u0007 ' }).title, 'A b');
  assert.equal(read({ title: 'x'.repeat(128 * 1024) }).title, 'x'.repeat(300));
  assert.equal(read({ title: `${'x'.repeat(299)}🎬` }).title, 'x'.repeat(299));
  assert.equal(read({ title: '\ud83c alone' }).title, '\ufffd alone');
  for (const title of [undefined, null, 5, ['A'], { a: 1 }]) assert.equal(read({ title }).title, '');
});

test('a text is cut before it is worked on', () => {
  const begin = performance.now();
  assert.equal(cleanText(' '.repeat(50_000_000), 300), '');
  assert.ok(performance.now() - begin < 1_000);
});

test('a list has at most 1,000 entries, the best of the formats among them', () => {
  const formats = Array.from({ length: 5_000 }, (_, index) => ({ ...format, height: index + 1 }));
  const medium = read({ formats });
  assert.deepEqual([medium.formats.length, medium.formats.at(-1).height], [1_000, 5_000]);
  const group = Object.fromEntries(formats.map((_, index) => [`x${index}`, [{ ext: 'vtt', url }]]));
  const many = read({ subtitles: group, automatic_captions: group });
  assert.equal(describeSubtitles(many).tracks.length, 1_000);
});

test('what is no number in its range is unknown', () => {
  const odd = { height: 1e9, tbr: -5, abr: 'many', filesize: 1e300, preference: '9', language: 7, ext: '../../x' };
  const [{ height, tbr, abr, bytes, preference, language, ext }] = read({ formats: [{ ...format, ...odd }] }).formats;
  assert.deepEqual({ height, tbr, abr, bytes, preference, language, ext }, {
    height: undefined,
    tbr: undefined,
    abr: undefined,
    bytes: undefined,
    preference: -1,
    language: '',
    ext: 'media',
  });
  assert.equal(read({ formats: [{ ...format, height: 360.5 }] }).formats[0].height, undefined);
});

test('headers that could smuggle in others, and keys of tracks that cannot be shown, are left out', () => {
  const http_headers = { Referer: 'https://a.example/', 'X-A': 'b\r\nX-C: d', 'X-E\n': 'f', Number: 5 };
  assert.deepEqual(read({ http_headers }).formats[0].headers, { Referer: 'https://a.example/' });
  const files = [{ ext: 'vtt', url }];
  const subtitles = { en: files, '': files, 'a\nb': files, ['x'.repeat(500)]: files, __proto__: files };
  assert.deepEqual([...read({ subtitles }).subtitles.keys()], ['en']);
  const [track] = read({ subtitles: { en: [{ ext: 'vtt', url, name: ['x'] }] } }).subtitles.get('en');
  assert.equal(track.name, '');
});

test('yt-dlp gets back its own streams with nothing of the page around them', () => {
  const { source, formats } = read({ title: 'x', webpage_url: url, requested_downloads: [{ filepath: '/etc/x' }] });
  assert.deepEqual(Object.keys(source), ['_type', 'id', 'title', 'extractor', 'extractor_key', 'http_headers']);
  assert.deepEqual(formats[0].source, format);
});

test('a stream list is never left to ffmpeg, which would choose by itself what to open', () => {
  assert.equal(read({ formats: [{ ...format, protocol: 'm3u8' }] }).formats[0].source.protocol, 'm3u8_native');
});

test('what cannot be saved is refused with its reason', () => {
  const only = (more) => failureOf(JSON.stringify({ formats: [{ ...format, ...more }] }));
  assert.match(only({ has_drm: true }), /protected against copying \(DRM\)/);
  assert.match(only({ url: 'http://media.example/file' }), /without encryption only/);
});

for (const [state, pattern] of [
  [{ is_live: true }, /live stream cannot be saved before it has ended/],
  [{ live_status: 'is_live' }, /live stream cannot be saved before it has ended/],
  [{ live_status: 'is_upcoming' }, /has not begun/],
  [{ live_status: 'post_live' }, /has just ended/],
]) {
  test(`a live stream is told by ${JSON.stringify(state)}`, () => {
    assert.match(failureOf(JSON.stringify({ formats: [format], ...state })), pattern);
  });
}

test('the recording of a live stream is a medium like others', () => {
  assert.equal(read({ live_status: 'was_live', was_live: true, is_live: false }).formats.length, 1);
});
