import assert from 'node:assert/strict';
import { test } from 'node:test';

import { parseMeasurement, planAudio, planVideo, measureArguments } from '../src/ffmpeg.mjs';
import { chooseForAudio, chooseForVideo, qualitiesOf } from '../src/formats.mjs';
import { proposeFilename } from '../src/names.mjs';
import { Offers } from '../src/requests.mjs';
import { StreamProgress } from '../src/stream_progress.mjs';
import { describeSubtitles, findTrack } from '../src/subtitles.mjs';
import { parseProgress, readableError } from '../src/ytdlp.mjs';

const video = (format_id, height, more) => ({ format_id, height, vcodec: 'avc1', acodec: 'none', ext: 'mp4', ...more });
const audio = (format_id, more) => ({ format_id, vcodec: 'none', acodec: 'mp4a.40.2', ext: 'm4a', ...more });

test('qualities are heights with a p, best first, each once', () => {
  const formats = [video('1', 360), video('2', 1080), video('3', 360), audio('4'), video('5', 720)];
  assert.deepEqual(qualitiesOf({ formats }), ['1080p', '720p', '360p']);
});

test('picture boards, protected formats and formats without a height are no qualities', () => {
  const formats = [
    video('board', 90, { vcodec: 'none' }),
    video('sheet', 180, { protocol: 'mhtml' }),
    video('protected', 2160, { has_drm: true }),
    video('unknown', null),
  ];
  assert.deepEqual(qualitiesOf({ formats }), []);
  assert.deepEqual(qualitiesOf({}), []);
});

test('a video is taken in H.264 with AAC where the site has them', () => {
  const formats = [
    video('vp9', 1080, { vcodec: 'vp9', ext: 'webm', tbr: 9000 }),
    video('av1', 1080, { vcodec: 'av01.0.08M.08', tbr: 8000 }),
    video('h264', 1080, { tbr: 3000 }),
    video('lower', 720, { tbr: 99000 }),
    audio('opus', { acodec: 'opus', abr: 160 }),
    audio('aac', { abr: 128 }),
  ];
  const chosen = chooseForVideo({ formats }, '1080p');
  assert.deepEqual([chosen.video.format_id, chosen.audio.format_id], ['h264', 'aac']);
});

test('a video that brings its sound needs no other stream', () => {
  const formats = [video('both', 360, { acodec: 'mp4a.40.2' }), audio('aac')];
  const chosen = chooseForVideo({ formats }, '360p');
  assert.deepEqual([chosen.video.format_id, chosen.audio], ['both', null]);
});

test('a quality that the medium lacks gives no choice', () => {
  assert.equal(chooseForVideo({ formats: [video('1', 360)] }, '720p'), null);
});

test('the original language is heard, not a dubbed one of better quality', () => {
  const dubbed = audio('dubbed', { abr: 256, language_preference: -1 });
  const formats = [dubbed, audio('original', { abr: 64, language_preference: 10 })];
  assert.equal(chooseForAudio({ formats }).format_id, 'original');
});

test('sound alone is taken from a stream of its own, else from a small video', () => {
  assert.equal(chooseForAudio({ formats: [video('v', 360, { acodec: 'aac' }), audio('a')] }).format_id, 'a');
  const formats = [180, 480, 1080].map((height) => video(`${height}`, height, { acodec: 'mp4a.40.2' }));
  assert.equal(chooseForAudio({ formats }).format_id, '480');
  assert.equal(chooseForAudio({ formats: [video('silent', 360)] }), null);
});

test('containers fit the codecs: MP4 where it plays, MP3 stays, other sound becomes AAC', () => {
  assert.equal(planVideo('h264', 'aac').ext, 'mp4');
  assert.deepEqual(planVideo('h264', 'aac').codecs, ['-c:v', 'copy', '-c:a', 'copy', '-movflags', '+faststart']);
  assert.ok(planVideo('h264', 'opus').codecs.includes('aac'));
  assert.ok(planVideo('hevc', 'aac').codecs.includes('hvc1'));
  assert.equal(planVideo('h264', undefined).ext, 'mp4');
  assert.equal(planVideo('vp9', 'opus').ext, 'webm');
  assert.equal(planVideo('vp9', 'aac').ext, 'mkv');
  assert.equal(planAudio('mp3').ext, 'mp3');
  assert.deepEqual(planAudio('aac').codecs.slice(0, 2), ['-c:a', 'copy']);
  assert.deepEqual([planAudio('opus').ext, planAudio('opus').codecs[1]], ['m4a', 'aac']);
});

test('a measurement keeps a cover picture apart from a video', () => {
  const cover = { codec_type: 'video', codec_name: 'mjpeg', height: 500, disposition: { attached_pic: 1 } };
  const sound = { codec_type: 'audio', codec_name: 'mp3' };
  const measured = parseMeasurement(JSON.stringify({ format: { duration: '3.5' }, streams: [cover, sound] }));
  assert.deepEqual(measured, { duration: 3.5, video: undefined, audio: 'mp3', height: undefined });
  assert.equal(parseMeasurement('nonsense'), null);
  assert.equal(parseMeasurement('{"format":{"duration":"N/A"}}').duration, undefined);
});

test('cookies are never passed in arguments that every user can read', () => {
  const secrets = { Cookie: 'secret', Authorization: 'secret' };
  const headers = { ...secrets, 'User-Agent': 'agent', Referer: 'https://a.example/\r\nX: y' };
  const args = measureArguments('https://media.example/v', headers);
  assert.ok(!args.join(' ').includes('secret'));
  assert.ok(args.includes('agent'));
  assert.ok(!args.join(' ').includes('X: y'));
});

test('tracks carry label, language and flags, originals first', () => {
  const file = [{ ext: 'vtt', url: 'u' }];
  const info = {
    language: 'de',
    subtitles: { fr: [{ ext: 'vtt', name: 'Français' }], de: file, live_chat: [{ ext: 'json' }] },
    automatic_captions: { en: file, 'de-orig': file, de: file },
  };
  const { tracks, originalLanguage, recommendedSubtitleId } = describeSubtitles(info);
  assert.deepEqual(tracks, [
    { id: 'subtitle:de', language: 'de', label: 'German', automatic: false, original: true },
    { id: 'automatic:de-orig', language: 'de', label: 'German', automatic: true, original: true },
    { id: 'subtitle:fr', language: 'fr', label: 'Français', automatic: false, original: false },
    { id: 'automatic:en', language: 'en', label: 'English', automatic: true, original: false },
    { id: 'automatic:de', language: 'de', label: 'German', automatic: true, original: false },
  ]);
  assert.equal(originalLanguage, 'de');
  assert.equal(recommendedSubtitleId, 'subtitle:de');
});

test('the recommended track is original before manual before the first', () => {
  const file = [{ ext: 'vtt' }];
  const recommended = (info) => describeSubtitles(info).recommendedSubtitleId;
  assert.equal(recommended({ subtitles: { fr: file }, automatic_captions: { 'en-orig': file } }), 'automatic:en-orig');
  assert.equal(recommended({ subtitles: { fr: file }, automatic_captions: { en: file } }), 'subtitle:fr');
  assert.equal(recommended({ automatic_captions: { en: file } }), 'automatic:en');
  assert.equal(recommended({}), undefined);
});

test('the original language is told by the medium, its transcript or its only sound', () => {
  const language = (info) => describeSubtitles(info).originalLanguage;
  const spoken = (code, language_preference) => ({ acodec: 'aac', language: code, language_preference });
  assert.equal(language({ language: 'pt-BR' }), 'pt-BR');
  assert.equal(language({ automatic_captions: { 'ja-orig': [] } }), 'ja');
  assert.equal(language({ formats: [spoken('en', -1), spoken('ko', 10)] }), 'ko');
  assert.equal(language({ formats: [spoken('it'), spoken('it')] }), 'it');
  assert.equal(language({ formats: [spoken('it'), spoken('en')] }), undefined);
  assert.equal(language({ language: 'und' }), undefined);
});

test('a track is found by its identifier, its best file for the wanted format first', () => {
  const subtitles = { 'a:b,c': [{ ext: 'ttml' }, { ext: 'vtt' }, { ext: 'json3' }, { ext: 'srt' }] };
  const filesFor = (format) => findTrack({ subtitles }, 'subtitle:a:b,c', format).files.map(({ ext }) => ext);
  assert.deepEqual(filesFor('srt'), ['srt', 'vtt', 'ttml']);
  assert.equal(filesFor('vtt')[0], 'vtt');
  for (const id of ['automatic:a:b,c', 'subtitle:toString', 'a:b,c', '']) {
    assert.equal(findTrack({ subtitles }, id, 'vtt'), undefined, id);
  }
});

test('a stream of unknown size is weighted by its rate', () => {
  const streams = [
    { id: 'video', format: { tbr: 900 } },
    { id: 'audio', format: { tbr: 100 } },
  ];
  const progress = new StreamProgress(streams);
  progress.update({ id: 'video', done: 500, estimate: 1000 });
  assert.equal(progress.fraction, 0.45);
  progress.update({ id: 'audio', done: 10, total: 100 });
  assert.ok(progress.fraction > 0.45 && progress.fraction < 0.6);
  progress.update({ id: 'video', finished: true });
  progress.update({ id: 'audio', finished: true });
  assert.equal(progress.fraction, 1);
  assert.ok(progress.allFinished);
});

test('progress without any size stands still instead of lying', () => {
  const progress = new StreamProgress([{ id: 'video', format: {} }]);
  progress.update({ id: 'video', done: 12345, total: null, estimate: null });
  assert.equal(progress.fraction, 0);
});

test('a progress line is found wherever it stands, and nothing else is taken for one', () => {
  const line = '[x] done@progress video {"status": "downloading", "downloaded_bytes": 5, "total_bytes": null}';
  assert.deepEqual(parseProgress(line), { id: 'video', finished: false, done: 5, total: null, estimate: null });
  const others = ['[download] 5%', '@progress video {broken', '@progress '];
  others.forEach((other) => assert.equal(parseProgress(other), null));
});

const errors = [
  [
    'ERROR: [generic] None: Unable to download webpage: HTTP Error 404: Not Found ' +
      "(caused by <HTTPError 404: 'Not Found'>); " +
      'please report this issue on  https://tracker.example/issues?q= , filling out the appropriate issue template.',
    'Unable to download webpage: HTTP Error 404: Not Found.',
  ],
  [
    'ERROR: [generic] None: Unable to download webpage: <urlopen error [SSL: CERTIFICATE_VERIFY_FAILED] ' +
      "certificate verify failed: self-signed certificate (_ssl.c:992)> " +
      "(caused by URLError(SSLCertVerificationError(1, 'x')))",
    'Unable to download webpage: certificate verify failed: self-signed certificate.',
  ],
  ['ERROR: Unsupported URL: https://a.example/', 'Unsupported URL: https://a.example/.'],
  ['\u001b[0;31mERROR:\u001b[0m [site] id-1: Private video', 'Private video.'],
  [
    'ERROR: [site] id: Sign in to confirm your age. Use --cookies-from-browser or --cookies for the authentication. ' +
      'See https://a.example/wiki',
    'Sign in to confirm your age.',
  ],
  ['ERROR: first\nERROR: second\nWARNING: later', 'Second.'],
  ['WARNING: only a warning', 'yt-dlp ended with status 1 and gave no reason.'],
  ['', 'yt-dlp ended with status 1 and gave no reason.'],
];
for (const [stderr, message] of errors) {
  test(`a failure reads: ${message}`, () => assert.equal(readableError(stderr, { code: 1, signal: null }), message));
}

test('a tool that was killed is reported as such, and a long sentence is cut', () => {
  assert.equal(readableError('', { code: null, signal: 'SIGKILL' }), 'yt-dlp was ended by SIGKILL.');
  assert.ok(readableError(`ERROR: ${'x'.repeat(10_000)}`, { code: 1 }).length < 400);
});

test('a proposed name cannot leave its folder, hide its kind or be too long', () => {
  assert.equal(proposeFilename('A / B: "C"?', 'mp4'), 'A - B- -C.mp4');
  assert.equal(proposeFilename('../../etc/passwd', 'mp4'), 'etc-passwd.mp4');
  assert.equal(proposeFilename('photo\u202e4pm.exe\u0000\n', 'mp4'), 'photo 4pm.exe.mp4');
  for (const title of [undefined, '', '...', ' / ']) assert.equal(proposeFilename(title, 'm4a'), 'ZUNTO-download.m4a');
  assert.equal(proposeFilename('Größe 漢字 🎬', 'en', 'srt'), 'Größe 漢字 🎬.en.srt');
  const long = proposeFilename('漢'.repeat(500), 'mp4');
  assert.ok(Buffer.byteLength(long) <= 255 && long.endsWith('漢.mp4'), long);
  assert.ok(proposeFilename('x', '../y', 'vtt').startsWith('x.'));
  assert.ok(!proposeFilename('x', '../y', 'vtt').includes('/'));
});

test('what is offered is remembered per link, and only for so many links', () => {
  const offers = new Offers(1);
  offers.remember('a', ['720p'], ['subtitle:en']);
  assert.ok(offers.hasQuality('a', '720p') && !offers.hasQuality('a', '360p'));
  assert.ok(offers.hasQuality('edited', '720p') && !offers.hasQuality('edited', '360p'));
  assert.ok(!offers.hasTrack('a', 'subtitle:fr'));
  offers.remember('b', ['360p'], []);
  assert.ok(offers.hasQuality('a', '360p'), 'a is no longer remembered');
});
