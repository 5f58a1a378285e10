import assert from 'node:assert/strict';
import { readdir } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { plainInfo, writeStubs } from '../testing/stubs.mjs';
import { startProcessor, temporaryFolder } from '../testing/world.mjs';

const link = 'https://media.example/clip';

async function startWithStubs(t, scenario) {
  const stubs = await writeStubs(await temporaryFolder(t), scenario);
  return { processor: await startProcessor(t, stubs.env), stubs };
}

async function saveVideo(processor) {
  await processor.complete('/probe', { sourceUrl: link });
  return processor.complete('/jobs', { sourceUrl: link, mode: 'video', quality: '720p' });
}

test('an analysis answers what the form shows', async (t) => {
  const { processor } = await startWithStubs(t);
  const { seen, jobId, ...job } = await processor.complete('/probe', { sourceUrl: link });
  assert.deepEqual(job, {
    status: 'completed',
    progress: 100,
    stage: 'Finished.',
    title: 'A clip',
    duration: 10,
    formats: [{ quality: '720p' }],
    subtitles: [{ id: 'subtitle:en', language: 'en', label: 'English', automatic: false, original: false }],
    recommendedSubtitleId: 'subtitle:en',
  });
});

test('the link reaches yt-dlp as one argument behind "--", trimmed and percent-encoded', async (t) => {
  const { processor, stubs } = await startWithStubs(t);
  await processor.complete('/probe', { sourceUrl: ' \n\thttps://média.example/größe?q=ü&x=$(id) --exec\u00a0 ' });
  const [{ args }] = await stubs.lines('calls');
  const place = args.indexOf('--');
  assert.deepEqual(args.slice(place + 1), ['https://xn--mdia-bpa.example/gr%C3%B6%C3%9Fe?q=%C3%BC&x=$(id)%20--exec']);
  assert.ok(args.includes('--no-playlist'));
  assert.ok(!args.includes('--ignore-config'), "the user's own settings stay in force");
});

test('a job takes the link untrimmed and finds what its analysis offered', async (t) => {
  const { processor } = await startWithStubs(t);
  await processor.complete('/probe', { sourceUrl: 'https://media.example/gr%C3%B6%C3%9Fe' });
  const order = { sourceUrl: '  https://media.example/größe\n', mode: 'video', quality: '720p' };
  assert.equal((await processor.complete('/jobs', order)).status, 'completed');
});

test('a link edited after its analysis is checked by the job itself', async (t) => {
  const edited = `${link}-edited`;
  const infos = { [edited]: { ...plainInfo, formats: [{ ...plainInfo.formats[0], height: 480 }] } };
  const { processor } = await startWithStubs(t, { infos });
  await processor.complete('/probe', { sourceUrl: link });
  const video = await processor.complete('/jobs', { sourceUrl: edited, mode: 'video', quality: '720p' });
  assert.deepEqual([video.status, video.error?.message], ['failed', 'This link does not offer 720p.']);
  const order = { sourceUrl: edited, mode: 'subtitle', subtitleLanguage: 'subtitle:fr', subtitleFormat: 'vtt' };
  const subtitle = await processor.complete('/jobs', order);
  assert.equal(subtitle.status, 'failed');
  assert.equal(subtitle.error.message, 'This link does not have the chosen subtitle track.');
});

test('the browser login becomes the cookie option, and no login none', async (t) => {
  const { processor, stubs } = await startWithStubs(t);
  await processor.complete('/probe', { sourceUrl: link, browserLogin: 'chrome' });
  await processor.complete('/jobs', { sourceUrl: link, browserLogin: 'safari', mode: 'audio' });
  await processor.complete('/probe', { sourceUrl: link });
  const browsers = (await stubs.lines('calls')).map(({ args }) => {
    const place = args.indexOf('--cookies-from-browser');
    return place < 0 ? null : args[place + 1];
  });
  assert.deepEqual(browsers, ['chrome', 'safari', 'safari', null]);
});

test('the tools keep their temporary files in the folder of the job', async (t) => {
  const { processor, stubs } = await startWithStubs(t);
  await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  for (const { env, cwd } of await stubs.lines('calls')) {
    assert.equal(env.TMPDIR, cwd);
    assert.ok(cwd.startsWith(`${processor.tempRoot}${path.sep}run-`));
    assert.equal(env.ZUNTO_HELPER_PARENT_PID, undefined);
  }
});

test('progress is weighted by bytes over both streams and never goes back', async (t) => {
  const report = (done, total) => ({ downloaded_bytes: done, total_bytes: total });
  const reports = { video: [report(450, 900), report(90, 900), report(900, 900)], audio: [report(50, 100)] };
  const { processor } = await startWithStubs(t, { reports, pauseMs: 250, convertReports: [5_000_000] });
  const { seen, status } = await saveVideo(processor);
  assert.equal(status, 'completed');
  const progress = seen.map((job) => job.progress);
  assert.deepEqual(progress, [...progress].sort((a, b) => a - b));
  // The download spans 2 to 92; half of the 900 of all 1000 bytes is 45 percent of it.
  assert.ok(progress.includes(2 + 0.45 * 90), `${progress}`);
  assert.ok(progress.includes(2 + 0.95 * 90), `${progress}`);
  // Half of the merging, which spans 92 to 99.
  assert.ok(progress.includes(95.5), `${progress}`);
  assert.deepEqual(seen.filter((job) => job.progress === 100).map((job) => job.status), ['completed']);
});

test('the stage says in words what happens', async (t) => {
  const report = { downloaded_bytes: 1, total_bytes: 100 };
  const scenario = { reports: { video: [report], audio: [report] }, pauseMs: 200, convertReports: [1] };
  const { processor } = await startWithStubs(t, scenario);
  const { seen } = await saveVideo(processor);
  const stages = seen.map(({ status, stage }) => `${status}: ${stage}`);
  for (const stage of [
    'probing: Reading the link…',
    'downloading: Downloading video…',
    'downloading: Downloading audio…',
    'processing: Merging video and audio…',
    'completed: Finished.',
  ]) {
    assert.ok(stages.includes(stage), `${stage} in ${[...new Set(stages)]}`);
  }
});

test('only the result stays in the folder of a completed job', async (t) => {
  const { processor, stubs } = await startWithStubs(t);
  await saveVideo(processor);
  const { cwd } = (await stubs.lines('calls')).at(-1);
  assert.deepEqual(await readdir(cwd), ['result.mp4']);
});

test('the subtitle track is delivered in the wanted format under a speaking name', async (t) => {
  const { processor } = await startWithStubs(t, { subtitle: '1\n00:00:00,000 --> 00:00:01,000\nHello\n' });
  const order = { sourceUrl: link, mode: 'subtitle', subtitleLanguage: 'subtitle:en', subtitleFormat: 'srt' };
  const { jobId, result } = await processor.complete('/jobs', order);
  assert.equal(result.filename, 'A clip.en.srt');
  const { body } = await processor.request('GET', `/jobs/${jobId}/result`);
  assert.match(body.toString(), /Hello/);
});

test("a failure carries the tool's own last sentence and leaves no file", async (t) => {
  const boilerplate = '; please report this issue on  https://tracker.example , filling out the template.';
  const inspectError = `WARNING: old\nERROR: [site] abc: Video unavailable${boilerplate}`;
  const analysis = await startWithStubs(t, { inspectError });
  const probe = await analysis.processor.complete('/probe', { sourceUrl: link });
  assert.equal(probe.status, 'failed');
  assert.deepEqual(probe.error, { message: 'Video unavailable.' });

  for (const [name, message] of [
    ['downloadError', 'ERROR: unable to download video data: HTTP Error 403: Forbidden'],
    ['convertError', 'Error while decoding'],
  ]) {
    const { processor } = await startWithStubs(t, { [name]: message });
    const { status, error } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
    assert.equal(status, 'failed');
    assert.match(error.message, /403: Forbidden\.$|decoding\.$/);
    const [run] = await readdir(processor.tempRoot);
    assert.deepEqual(await readdir(path.join(processor.tempRoot, run)), []);
  }
});

test('an empty result is a failure', async (t) => {
  const { processor } = await startWithStubs(t, { resultBytes: 0 });
  const { status, error } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  assert.deepEqual([status, error.message], ['failed', 'The download is empty.']);
});

test('a list of media, a live stream and an empty answer are refused in words', async (t) => {
  const entry = { ...plainInfo };
  const cases = [
    [{ _type: 'playlist', playlist_count: 3, entries: [entry] }, /list of media/],
    [{ _type: 'playlist', playlist_count: 0, entries: [] }, /no media/],
    [{ ...plainInfo, is_live: true }, /live stream/],
    [null, /gave no reason/],
  ];
  for (const [info, pattern] of cases) {
    const { processor } = await startWithStubs(t, { info });
    const { status, error } = await processor.complete('/probe', { sourceUrl: link });
    assert.equal(status, 'failed');
    assert.match(error.message, pattern);
  }
});

test('a page with exactly one medium is that medium', async (t) => {
  const info = { _type: 'playlist', playlist_count: 1, entries: [plainInfo] };
  const { processor } = await startWithStubs(t, { info });
  assert.equal((await processor.complete('/probe', { sourceUrl: link })).title, 'A clip');
});

test('a duration that nobody knows is left out', async (t) => {
  const { duration, ...info } = plainInfo;
  const { processor } = await startWithStubs(t, { info, measureFails: true });
  const job = await processor.complete('/probe', { sourceUrl: link });
  assert.equal(job.status, 'completed');
  assert.ok(!('duration' in job));
});
