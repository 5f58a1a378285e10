// With the real yt-dlp, ffmpeg and ffprobe against a local server. A machine without them fails here.

import assert from 'node:assert/strict';
import { accessSync, constants } from 'node:fs';
import { cp, mkdir, mkdtemp, readdir, readFile, readlink, rm, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { clipSeconds, probeFile, serveClip, serveStranger, tools } from '../testing/media_server.mjs';
import { plainInfo, writeStubs } from '../testing/stubs.mjs';
import { eventually, startProcessor, temporaryFolder } from '../testing/world.mjs';

const toolEnvironment = { YT_DLP_PATH: tools.ytDlp, FFMPEG_PATH: tools.ffmpeg, FFPROBE_PATH: tools.ffprobe };

describe('with the real tools', { concurrency: false }, () => {
  let folder;
  let clip;
  before(async () => {
    Object.values(tools).forEach((file) => accessSync(file, constants.X_OK));
    folder = await mkdtemp(path.join(os.tmpdir(), 'processor-clip-'));
    clip = await serveClip(folder);
  });
  after(async () => {
    clip?.close();
    if (folder) await rm(folder, { recursive: true, force: true });
  });

  async function startWithClip(t, env = {}) {
    const { base, home } = clip;
    const processor = await startProcessor(t, { ...toolEnvironment, HOME: home, ...env });
    const save = async (job) => {
      const file = path.join(folder, `saved-${job.result.filename}`);
      const { status, body } = await processor.request('GET', `/jobs/${job.jobId}/result`);
      assert.equal(status, 200);
      await writeFile(file, body);
      return { file, text: body.toString('utf8') };
    };
    return { processor, base, save };
  }

  function assertCompleted(job) {
    assert.equal(job.status, 'completed', JSON.stringify(job.error));
    const progress = job.seen.map((state) => state.progress);
    assert.deepEqual(progress, [...progress].sort((a, b) => a - b));
  }

  function assertClipLength(duration) {
    assert.ok(Math.abs(duration - clipSeconds) < 0.3, `${duration} s`);
  }

  test('a list of streams is analysed and saved as video, audio and subtitle', async (t) => {
    const { processor, base, save } = await startWithClip(t);
    const sourceUrl = ` ${base}/größe.m3u8 `;
    const analysis = await processor.complete('/probe', { sourceUrl });
    assertCompleted(analysis);
    assert.deepEqual(analysis.formats, [{ quality: '360p' }, { quality: '180p' }]);
    assertClipLength(analysis.duration);
    assert.deepEqual(analysis.subtitles, [
      { id: 'subtitle:en', language: 'en', label: 'English', automatic: false, original: false },
    ]);
    assert.equal(analysis.recommendedSubtitleId, 'subtitle:en');

    for (const [quality, height] of [['360p', 360], ['180p', 180]]) {
      const job = await processor.complete('/jobs', { sourceUrl, mode: 'video', quality });
      assertCompleted(job);
      assert.equal(path.extname(job.result.filename), '.mp4');
      const { file } = await save(job);
      const { format, duration, streams } = await probeFile(file);
      assert.match(format, /mp4/);
      assertClipLength(duration);
      assert.deepEqual(streams.video, { codec: 'h264', height });
      assert.equal(streams.audio.codec, 'aac');
    }

    const audio = await processor.complete('/jobs', { sourceUrl, mode: 'audio' });
    assertCompleted(audio);
    assert.equal(path.extname(audio.result.filename), '.m4a');
    const sound = await probeFile((await save(audio)).file);
    assert.deepEqual(Object.keys(sound.streams), ['audio']);
    assert.equal(sound.streams.audio.codec, 'aac');
    assertClipLength(sound.duration);

    const track = { sourceUrl, mode: 'subtitle', subtitleLanguage: 'subtitle:en' };
    const srt = await processor.complete('/jobs', { ...track, subtitleFormat: 'srt' });
    assertCompleted(srt);
    assert.match(srt.result.filename, /\.en\.srt$/);
    const savedSrt = await save(srt);
    assert.match(savedSrt.text, /^1\r?\n00:00:00,000 --> 00:00:02,000\r?\nHello there\r?\n\r?\n2\r?\n/);
    assert.match(savedSrt.text, /Grüße und Küsse/);
    assert.equal((await probeFile(savedSrt.file)).streams.subtitle.codec, 'subrip');

    const savedVtt = await save(await processor.complete('/jobs', { ...track, subtitleFormat: 'vtt' }));
    assert.match(savedVtt.text, /^WEBVTT[^]*00:00\.000 --> [^]*Hello there/);
  });

  test('a picture and a sound that come apart are merged', async (t) => {
    const { processor, base, save } = await startWithClip(t);
    const sourceUrl = `${base}/apart.m3u8`;
    const { formats } = await processor.complete('/probe', { sourceUrl });
    assert.deepEqual(formats, [{ quality: '360p' }]);
    const job = await processor.complete('/jobs', { sourceUrl, mode: 'video', quality: '360p' });
    assertCompleted(job);
    const { duration, streams } = await probeFile((await save(job)).file);
    assertClipLength(duration);
    assert.deepEqual(streams, { video: { codec: 'h264', height: 360 }, audio: { codec: 'aac', height: undefined } });
  });

  test('a plain file, whose height only ffprobe knows, is analysed and saved', async (t) => {
    const { processor, base, save } = await startWithClip(t);
    const sourceUrl = `${base}/plain.mp4`;
    const analysis = await processor.complete('/probe', { sourceUrl });
    assert.deepEqual(analysis.formats, [{ quality: '360p' }]);
    assert.equal(analysis.title, 'plain');
    assertClipLength(analysis.duration);
    const job = await processor.complete('/jobs', { sourceUrl, mode: 'video', quality: '360p' });
    assertCompleted(job);
    assertClipLength((await probeFile((await save(job)).file)).duration);
  });

  test('sound that is MP3 already stays MP3', async (t) => {
    const { processor, base, save } = await startWithClip(t);
    const job = await processor.complete('/jobs', { sourceUrl: `${base}/odd.mkv`, mode: 'audio' });
    assertCompleted(job);
    assert.equal(job.result.filename, 'odd.mp3');
    assert.equal((await probeFile((await save(job)).file)).streams.audio.codec, 'mp3');
  });

  // The working folders of the processes that work in this one or below.
  async function processesIn(folder) {
    const pids = (await readdir('/proc')).filter((name) => /^[0-9]+$/.test(name));
    const places = await Promise.all(pids.map((pid) => readlink(`/proc/${pid}/cwd`).catch(() => '')));
    return places.filter((place) => place.startsWith(folder));
  }

  test('a download that is stuck is cancelled within two seconds and leaves nothing', async (t) => {
    const { processor, base } = await startWithClip(t);
    const id = await processor.begin('/jobs', { sourceUrl: `${base}/stuck.m3u8`, mode: 'audio' });
    const [run] = await readdir(processor.tempRoot);
    const runFolder = path.join(processor.tempRoot, run);
    await eventually('yt-dlp has begun a file', async () => {
      const names = await readdir(runFolder).catch(() => []);
      const jobs = await Promise.all(names.map((name) => readdir(path.join(runFolder, name)).catch(() => [])));
      return jobs.flat().some((name) => name.startsWith('audio.'));
    }, 60_000);
    assert.equal((await processesIn(runFolder)).length, 1);
    const begin = performance.now();
    const { json } = await processor.post(`/jobs/${id}/cancel`, {});
    assert.ok(performance.now() - begin < 2_000);
    assert.equal(json.status, 'cancelled');
    assert.deepEqual(await processesIn(runFolder), []);
    assert.deepEqual(await readdir(runFolder), []);
  });

  test('a page that is not there fails in words', async (t) => {
    const { processor, base } = await startWithClip(t);
    const { status, error } = await processor.complete('/probe', { sourceUrl: `${base}/missing.m3u8` });
    assert.equal(status, 'failed');
    assert.match(error.message, /^Unable to download webpage: HTTP Error 404: .*[^)>]\.$/);
  });

  test("the user's own settings for yt-dlp change nothing", async (t) => {
    const home = path.join(await temporaryFolder(t), 'home');
    await cp(clip.home, home, { recursive: true });
    await mkdir(path.join(home, '.config', 'yt-dlp'));
    const elsewhere = path.join(await temporaryFolder(t), 'elsewhere.%(ext)s');
    const options = ['--simulate', '--format worst', '--max-filesize 1', '--download-sections *0-1', '--ignore-errors'];
    const more = ['--cookies-from-browser chrome', '--remux-video mkv', `--output '${elsewhere}'`, '--quiet'];
    await writeFile(path.join(home, '.config', 'yt-dlp', 'config'), [...options, ...more].join('\n'));
    const { processor, base, save } = await startWithClip(t, { HOME: home });
    const order = { sourceUrl: `${base}/clip-bare.m3u8`, mode: 'video', quality: '360p' };
    assert.deepEqual((await processor.complete('/probe', order)).formats, [{ quality: '360p' }, { quality: '180p' }]);
    const job = await processor.complete('/jobs', order);
    assertCompleted(job);
    assert.equal(job.result.filename, 'clip-bare.mp4');
    const { duration, streams } = await probeFile((await save(job)).file);
    assertClipLength(duration);
    assert.equal(streams.video.height, 360);
    assert.deepEqual(await readdir(path.dirname(elsewhere)), []);
  });

  test('a temporary folder may have any name, whatever yt-dlp expands in paths', async (t) => {
    const tempRoot = path.join(await temporaryFolder(t), '$HOME ~ %(id)s\n100%');
    const { processor, base } = await startWithClip(t, { TEMP_ROOT: tempRoot });
    const order = { sourceUrl: `${base}/größe.m3u8`, subtitleLanguage: 'subtitle:en', subtitleFormat: 'srt' };
    for (const mode of ['audio', 'subtitle']) assertCompleted(await processor.complete('/jobs', { ...order, mode }));
  });

  test('certificates are checked unless the settings of the user say otherwise', async (t) => {
    const processor = await startProcessor(t, { ...toolEnvironment, HOME: await temporaryFolder(t) });
    const { status, error } = await processor.complete('/probe', { sourceUrl: `${clip.base}/plain.mp4` });
    assert.equal(status, 'failed');
    assert.match(error.message, /certificate verify failed/);
  });

  for (const scheme of ['https', 'http']) {
    test(`a link that leads to another server of this machine by ${scheme} is not followed`, async (t) => {
      const { processor, base } = await startWithClip(t);
      const stranger = await serveStranger(folder, scheme);
      t.after(stranger.close);
      const target = encodeURIComponent(`${stranger.base}/secret.mp4`);
      const analysis = await processor.complete('/probe', { sourceUrl: `${base}/led/x.mp4?to=${target}` });
      assert.equal(analysis.status, 'failed');
      assert.match(analysis.error.message, /^The site leads to an address of this computer or its own network/);
      assert.deepEqual(stranger.requests, []);
    });

    test(`a segment that lies on another server of this machine is not fetched by ${scheme}`, async (t) => {
      const { processor, base } = await startWithClip(t);
      const stranger = await serveStranger(folder, scheme);
      t.after(stranger.close);
      const target = encodeURIComponent(`${stranger.base}/secret.ts`);
      for (const segment of [target, encodeURIComponent(`${base}/led/x.ts?to=${target}`)]) {
        const job = await processor.complete('/jobs', { sourceUrl: `${base}/list.m3u8?of=${segment}`, mode: 'audio' });
        assert.equal(job.status, 'failed');
        assert.match(job.error.message, /^The site leads to an address (of this computer|without encryption)/);
        assert.deepEqual(stranger.requests, []);
      }
    });
  }

  test('a redirect from a segment to plain HTTP is not followed, even on the same host', async (t) => {
    const { processor, base } = await startWithClip(t);
    const plain = encodeURIComponent(base.replace('https:', 'http:'));
    const segment = encodeURIComponent(`${base}/led/x.ts?to=${plain}`);
    const job = await processor.complete('/jobs', { sourceUrl: `${base}/list.m3u8?of=${segment}`, mode: 'audio' });
    assert.match(job.error.message, /^The site leads to an address without encryption/);
  });

  test('a redirect within the server of the link is followed', async (t) => {
    const { processor, base } = await startWithClip(t);
    const target = encodeURIComponent(`${base}/plain.mp4`);
    const analysis = await processor.complete('/probe', { sourceUrl: `${base}/led/x.mp4?to=${target}` });
    assert.deepEqual(analysis.formats, [{ quality: '360p' }]);
  });

  test('a list of streams in the clothes of a video does not bring files of the user into the result', async (t) => {
    const { processor, base } = await startWithClip(t);
    const secret = path.join(await temporaryFolder(t), 'secret.mp4');
    await cp(path.join(folder, 'site', 'plain.mp4'), secret);
    const list = (file) => `#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4.0,\nfile://${file}\n#EXT-X-ENDLIST\n`;
    for (const [name, text] of [
      ['trap.mp4', list(secret)],
      ['script.mp4', `ffconcat version 1.0\nfile '${secret}'\n`],
    ]) {
      await writeFile(path.join(folder, 'site', name), text);
      const job = await processor.complete('/jobs', { sourceUrl: `${base}/${name}`, mode: 'audio' });
      assert.equal(job.status, 'failed');
      assert.equal(job.error.message, 'What the site delivered is no video or sound that can be read.');
    }
  });

  test('captions made by a machine become SRT with every line once', async (t) => {
    const file = { url: 'https://media.example/c', ext: 'vtt' };
    const subtitle = await readFile(new URL('../testing/rolling.vtt', import.meta.url), 'utf8');
    const info = { ...plainInfo, subtitles: { en: [file] }, automatic_captions: { en: [file] } };
    const stubs = await writeStubs(await temporaryFolder(t), { info, subtitle });
    const processor = await startProcessor(t, { ...stubs.env, FFMPEG_PATH: tools.ffmpeg });
    const fetchTrack = async (subtitleLanguage, subtitleFormat) => {
      const order = { sourceUrl: 'https://media.example/', mode: 'subtitle', subtitleLanguage, subtitleFormat };
      const job = await processor.complete('/jobs', order);
      assert.equal(job.status, 'completed', JSON.stringify(job.error));
      return (await processor.request('GET', `/jobs/${job.jobId}/result`)).body.toString();
    };
    const cue = (number, from, to, text) => `${number}\n00:00:0${from} --> 00:00:0${to}\n${text}\n`;
    assert.equal(
      await fetchTrack('automatic:en', 'srt'),
      [
        cue(1, '0,160', '2,389', 'so today we talk'),
        cue(2, '2,399', '4,230', 'about captions'),
        cue(3, '4,240', '6,000', 'that roll & repeat'),
      ].join('\n'),
    );
    assert.match(await fetchTrack('subtitle:en', 'srt'), /so today we talk[^]*so today we talk/);
    assert.equal(await fetchTrack('automatic:en', 'vtt'), subtitle);
  });
});
