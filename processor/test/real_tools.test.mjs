// With the real yt-dlp, ffmpeg and ffprobe against a local server. A machine without them fails here.

import assert from 'node:assert/strict';
import { accessSync, constants } from 'node:fs';
import { mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { clipSeconds, probeFile, serveClip, tools } from '../testing/media_server.mjs';
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

  async function startWithClip(t) {
    const { base, home } = clip;
    const processor = await startProcessor(t, { ...toolEnvironment, HOME: home });
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

  // The processes whose command line names this text.
  async function processesNaming(text) {
    const pids = (await readdir('/proc')).filter((name) => /^[0-9]+$/.test(name));
    const lines = await Promise.all(pids.map((pid) => readFile(`/proc/${pid}/cmdline`, 'utf8').catch(() => '')));
    return lines.filter((line) => line.includes(text) && !line.startsWith('/bin/sh'));
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
    });
    assert.equal((await processesNaming(runFolder)).length, 1);
    const begin = performance.now();
    const { json } = await processor.post(`/jobs/${id}/cancel`, {});
    assert.ok(performance.now() - begin < 2_000);
    assert.equal(json.status, 'cancelled');
    assert.deepEqual(await processesNaming(runFolder), []);
    assert.deepEqual(await readdir(runFolder), []);
  });

  test('a page that is not there fails in words', async (t) => {
    const { processor, base } = await startWithClip(t);
    const { status, error } = await processor.complete('/probe', { sourceUrl: `${base}/missing.m3u8` });
    assert.equal(status, 'failed');
    assert.match(error.message, /^Unable to download webpage: HTTP Error 404: .*[^)>]\.$/);
  });

  test('certificates are checked unless the settings of the user say otherwise', async (t) => {
    const processor = await startProcessor(t, { ...toolEnvironment, HOME: await temporaryFolder(t) });
    const { status, error } = await processor.complete('/probe', { sourceUrl: `${clip.base}/plain.mp4` });
    assert.equal(status, 'failed');
    assert.match(error.message, /certificate verify failed/);
  });
});
