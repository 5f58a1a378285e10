import assert from 'node:assert/strict';
import { test } from 'node:test';

import { parseMeasurement, planAudio, planVideo, measureArguments } from '../src/ffmpeg.mjs';
import { chooseForAudio, chooseForVideo, qualitiesOf } from '../src/formats.mjs';
import { readMedium } from '../src/medium.mjs';
import { proposeFilename } from '../src/names.mjs';
import { Offers } from '../src/requests.mjs';
import { parseSettings } from '../src/settings.mjs';
import { StreamProgress } from '../src/stream_progress.mjs';
import { describeSubtitles, findTrack } from '../src/subtitles.mjs';
import { readableError } from '../src/reasons.mjs';
import { parseFile, parseProgress } from '../src/ytdlp.mjs';

const url = 'https://media.example/file';
const picture = { url, vcodec: 'avc1', acodec: 'none', ext: 'mp4' };
const sound = { url, vcodec: 'none', acodec: 'mp4a.40.2', ext: 'm4a' };
const video = (format_id, height, more) => ({ ...picture, format_id, height, ...more });
const audio = (format_id, more) => ({ ...sound, format_id, ...more });
const read = (answer) => readMedium(JSON.stringify(answer));
const formatId = (format) => format?.source.format_id;

test('qualities are heights with a p, best first, each once', () => {
  const formats = [video('1', 360), video('2', 1080), video('3', 360), audio('4'), video('5', 720)];
  assert.deepEqual(qualitiesOf(read({ formats })), ['1080p', '720p', '360p']);
});

test('picture boards, protected formats and formats without a height are no qualities', () => {
  const formats = [
    video('board', 90, { vcodec: 'none' }),
    video('sheet', 180, { protocol: 'mhtml' }),
    video('protected', 2160, { has_drm: true }),
    video('unknown', null),
  ];
  assert.deepEqual(qualitiesOf(read({ formats })), []);
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
  const chosen = chooseForVideo(read({ formats }), '1080p');
  assert.deepEqual([formatId(chosen.video), formatId(chosen.audio)], ['h264', 'aac']);
});

test('a video that brings its sound needs no other stream', () => {
  const formats = [video('both', 360, { acodec: 'mp4a.40.2' }), audio('aac')];
  const chosen = chooseForVideo(read({ formats }), '360p');
  assert.deepEqual([formatId(chosen.video), chosen.audio], ['both', null]);
});

test('a quality that the medium lacks gives no choice', () => {
  assert.equal(chooseForVideo(read({ formats: [video('1', 360)] }), '720p'), null);
});

test('the original language is heard, not a dubbed one of better quality', () => {
  const dubbed = audio('dubbed', { abr: 256, language_preference: -1 });
  const formats = [dubbed, audio('original', { abr: 64, language_preference: 10 })];
  assert.equal(formatId(chooseForAudio(read({ formats }))), 'original');
});

test('sound alone is taken from a stream of its own, else from a small video', () => {
  const withSound = video('v', 360, { acodec: 'aac' });
  assert.equal(formatId(chooseForAudio(read({ formats: [withSound, audio('a')] }))), 'a');
  const formats = [180, 480, 1080].map((height) => video(`${height}`, height, { acodec: 'mp4a.40.2' }));
  assert.equal(formatId(chooseForAudio(read({ formats }))), '480');
  assert.equal(chooseForAudio(read({ formats: [video('silent', 360)] })), null);
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
  const http_headers = { ...secrets, 'User-Agent': 'agent', Referer: 'https://a.example/\r\nX: y' };
  const [{ headers }] = read({ formats: [audio('a', { http_headers })] }).formats;
  const args = measureArguments('https://media.example/v', headers);
  assert.ok(!args.join(' ').includes('secret'));
  assert.ok(args.includes('agent'));
  assert.ok(!args.join(' ').includes('X: y'));
});

test('tracks carry label, language and flags, originals first', () => {
  const file = [{ ext: 'vtt', url }];
  const info = {
    language: 'de',
    subtitles: { fr: [{ ext: 'vtt', url, name: 'Français' }], de: file, live_chat: [{ ext: 'json' }] },
    automatic_captions: { en: file, 'de-orig': file, de: file },
  };
  const { tracks, originalLanguage, recommendedSubtitleId } = describeSubtitles(read(info));
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
  const file = [{ ext: 'vtt', url }];
  const recommended = (info) => describeSubtitles(read(info)).recommendedSubtitleId;
  assert.equal(recommended({ subtitles: { fr: file }, automatic_captions: { 'en-orig': file } }), 'automatic:en-orig');
  assert.equal(recommended({ subtitles: { fr: file }, automatic_captions: { en: file } }), 'subtitle:fr');
  assert.equal(recommended({ automatic_captions: { en: file } }), 'automatic:en');
  assert.equal(recommended({ formats: [audio('a')] }), undefined);
});

test('the original language is told by the medium, its transcript or its only sound', () => {
  const language = (info) => describeSubtitles(read({ formats: [audio('a')], ...info })).originalLanguage;
  const spoken = (code, language_preference) => ({ ...sound, language: code, language_preference });
  assert.equal(language({ language: 'pt-BR' }), 'pt-BR');
  assert.equal(language({ automatic_captions: { 'ja-orig': [{ ext: 'vtt', url }] } }), 'ja');
  assert.equal(language({ formats: [spoken('en', -1), spoken('ko', 10)] }), 'ko');
  assert.equal(language({ formats: [spoken('it'), spoken('it')] }), 'it');
  assert.equal(language({ formats: [spoken('it'), spoken('en')] }), undefined);
  assert.equal(language({ language: 'und' }), undefined);
});

test('a track is found by its identifier, its best file for the wanted format first', () => {
  const files = ['ttml', 'vtt', 'json3', 'srt'].map((ext) => ({ ext, url }));
  const medium = read({ subtitles: { 'a:b,c': files, other: files.slice(0, 2) } });
  const kindOf = (id, format) => findTrack(medium, id, format)?.file.ext;
  assert.equal(kindOf('subtitle:a:b,c', 'srt'), 'srt');
  assert.equal(kindOf('subtitle:a:b,c', 'vtt'), 'vtt');
  assert.equal(kindOf('subtitle:other', 'srt'), 'vtt');
  for (const id of ['automatic:a:b,c', 'subtitle:toString', 'a:b,c', '']) {
    assert.equal(findTrack(medium, id, 'vtt'), undefined, id);
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

test('a finished file is reported with its name as yt-dlp wrote it', () => {
  assert.deepEqual(parseFile('@file video "a\\nb.mp4"'), { id: 'video', file: 'a\nb.mp4' });
  for (const other of ['@file video NA', '@file video null', '@file video', '[x] @file video "a"']) {
    assert.equal(parseFile(other), null, other);
  }
});

test('of the settings for yt-dlp only those of the network are taken, and the others are named', () => {
  const taken = ['--proxy=socks5://127.0.0.1:1080', '--source-address "::1"', '-4', '--no-check-certificates'];
  const { settings, warnings } = parseSettings(`\ufeff\r\n# note\n${taken.join('\r\n')}`);
  assert.deepEqual(settings, {
    proxy: 'socks5://127.0.0.1:1080',
    sourceAddress: '::1',
    family: 4,
    anyCertificate: true,
  });
  assert.deepEqual(warnings, []);
  const refused = [
    ['--cookies-from-browser chrome', /^--cookies-from-browser cannot be set/],
    ['--exec=rm', /^--exec cannot be set/],
    ['-o /tmp/x', /^-o cannot be set/],
    ['--no-check-certificates --exec rm', /^--no-check-certificates takes no value/],
    ['--proxy a --exec rm', /^--proxy needs one value/],
    ["--proxy 'a' --exec 'rm'", /^--proxy needs one value/],
    ['--proxy', /^--proxy needs one value/],
    ['https://media.example/', /^line 1 is no option/],
  ];
  for (const [text, pattern] of refused) {
    const answer = parseSettings(text);
    assert.deepEqual(answer.settings, {}, text);
    assert.match(answer.warnings.join(), pattern);
  }
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
  [
    'ERROR: Unsupported URL: https://a.example/',
    'This link is not supported: no video or sound was found behind it.',
  ],
  ['\u001b[0;31mERROR:\u001b[0m [site] id-1: Private video', 'Private video.'],
  [
    'ERROR: [site] id: Sign in to confirm your age. Use --cookies-from-browser or --cookies for the authentication. ' +
      'See https://a.example/wiki',
    'The site asks who is watching, to check the age or to keep robots out. Choose a login under Access.',
  ],
  [
    'Traceback (most recent call last):\n  File "/usr/lib/python3/cookies.py", line 281, in _extract\n' +
      'FileNotFoundError: could not find chrome cookies database in "/home/user/.config/google-chrome"',
    'No profile of this browser was found on this computer.',
  ],
  ['ERROR: could not find safari cookies database', 'No profile of this browser was found on this computer.'],
  ['ERROR: unsupported platform: linux', 'This browser keeps no login that can be read on this computer.'],
  [
    'ERROR: Could not copy Chrome cookie database. See  https://tracker.example/issues/7271  for more info',
    "The browser's logins cannot be read while it keeps them locked. Quit the browser and try again.",
  ],
  [
    'sqlite3.OperationalError: database is locked',
    "The browser's logins cannot be read while it keeps them locked. Quit the browser and try again.",
  ],
  [
    "PermissionError: [Errno 1] Operation not permitted: '/Users/x/Library/Cookies/Cookies.binarycookies'",
    "The browser's logins cannot be read: macOS has to allow it, in the privacy settings under Full Disk Access.",
  ],
  ['ERROR: unable to write data: [Errno 28] No space left on device', 'There is no space left on the disk.'],
  [
    'ERROR: [site] id: This video is DRM protected',
    'This media is protected against copying (DRM) and cannot be saved.',
  ],
  [
    'ERROR: [site] id: Sign in to confirm you’re not a bot. Use --cookies-from-browser or --cookies for it.',
    'The site asks who is watching, to check the age or to keep robots out. Choose a login under Access.',
  ],
  [
    'ERROR: [site] id: This video is only available for registered users. Use --cookies, --username and --password',
    'The site shows this media to its users only. Choose a login under Access.',
  ],
  [
    'ERROR: [site] id: Unable to extract video data; please report this issue on  https://tracker.example/issues?q= .',
    'The site has changed and this yt-dlp does not understand it. Install a newer yt-dlp.',
  ],
  [
    'ERROR: [site] id: HTTP Error 429: Too Many Requests',
    'The site refuses further requests for a while. Try again later.',
  ],
  [
    "ERROR: [generic] x: Unable to download webpage: HTTPSConnectionPool(host='a.example', port=443): " +
      "Read timed out. (read timeout=20.0) (caused by TransportError('x'))",
    'The site does not answer. Try again later.',
  ],
  ["yt_dlp.utils.DownloadError: ERROR: \u001b]0;x\u0007\u001b[31mnothing\u001b[0m here", 'Nothing here.'],
  [
    "ERROR: unable to open for writing: [Errno 13] Permission denied: '/tmp/root/run-1-2/job-x/video.mp4.part'",
    'Unable to open for writing: Permission denied.',
  ],
  ['ERROR: first\nERROR: second\nWARNING: later', 'Second.'],
  ['WARNING: only a warning', 'yt-dlp ended with status 1 and gave no reason.'],
  ['', 'yt-dlp ended with status 1 and gave no reason.'],
];
for (const [stderr, message] of errors) {
  test(`a failure reads: ${message}`, () => assert.equal(readableError({ stderr, code: 1, signal: null }), message));
}

test('a tool that was killed is reported as such, and a long sentence is cut', () => {
  assert.equal(readableError({ stderr: '', code: null, signal: 'SIGKILL' }), 'yt-dlp was ended by SIGKILL.');
  assert.ok(readableError({ stderr: `ERROR: ${'x'.repeat(10_000)}`, code: 1, signal: null }).length < 400);
});

test('a proposed name cannot leave its folder, hide its kind or be too long', () => {
  assert.equal(proposeFilename('A / B: "C"?', 'mp4'), 'A - B- -C.mp4');
  assert.equal(proposeFilename('../../etc/passwd', 'mp4'), 'etc-passwd.mp4');
  assert.equal(proposeFilename('photo\u202e4pm.exe\u0000\n', 'mp4'), 'photo 4pm.exe.mp4');
  for (const title of ['', '...', ' / ']) assert.equal(proposeFilename(title, 'm4a'), 'ZUNTO-download.m4a');
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

test("of equal streams yt-dlp's last is taken", () => {
  const videos = read({ formats: [video('first', 720), video('last', 720)] });
  assert.equal(formatId(chooseForVideo(videos, '720p').video), 'last');
  const sounds = read({ formats: [audio('first', { abr: 128 }), audio('last', { abr: 128 })] });
  assert.equal(formatId(chooseForAudio(sounds)), 'last');
});

test('a stream that its site itself holds for worse is not taken for its bits', () => {
  for (const worse of [{ preference: -2 }, { source_preference: -5 }, { quality: -2 }, { language_preference: -10 }]) {
    const name = JSON.stringify(worse);
    const videos = read({ formats: [video('good', 720, { tbr: 100 }), video('worse', 720, { tbr: 900, ...worse })] });
    assert.equal(formatId(chooseForVideo(videos, '720p').video), 'good', name);
    const sounds = read({ formats: [audio('good', { abr: 100 }), audio('worse', { abr: 200, ...worse })] });
    assert.equal(formatId(chooseForAudio(sounds)), 'good', name);
  }
});

test('a watermark is worse than any codec', () => {
  const formats = [video('clean', 720, { vcodec: 'hevc', preference: -1 }), video('marked', 720, { preference: -2 })];
  assert.equal(formatId(chooseForVideo(read({ formats }), '720p').video), 'clean');
});

test('compressed loudness loses against the clean sound of the same codec', () => {
  const formats = [audio('clean', { abr: 129, quality: 3 }), audio('compressed', { abr: 130, quality: 2.5 })];
  assert.equal(formatId(chooseForAudio(read({ formats }))), 'clean');
});

test('whoever has chosen a login is not told to choose one', () => {
  const end = { stderr: 'ERROR: Sign in to confirm you’re not a bot', code: 1, signal: null };
  assert.match(readableError(end), /Choose a login under Access\.$/);
  assert.match(readableError(end, { loggedIn: true }), /keep robots out\. The chosen login does not suffice\.$/);
});

test('what ffmpeg says is told without its own words', () => {
  for (const stderr of [
    '[mov,mp4,m4a @ 0x55d0] moov atom not found\n/tmp/x/video.mp4: Invalid data found when processing input',
    'Error opening input: Invalid data found when processing input',
  ]) {
    const end = { stderr, code: 1, signal: null };
    assert.equal(readableError(end, { name: 'ffmpeg' }), 'What the site delivered cannot be read.');
  }
  const end = { stderr: '[mp4 @ 0x5a] Could not find tag for codec none in /tmp/a/result.mp4', code: 1, signal: null };
  assert.doesNotMatch(readableError(end, { name: 'ffmpeg' }), /0x|\/tmp/);
});
