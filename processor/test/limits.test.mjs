import assert from 'node:assert/strict';
import { writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { Cancelled } from '../src/errors.mjs';
import { defaultLimits, requireRoom, withinLimits } from '../src/limits.mjs';
import { Media } from '../src/media.mjs';
import { Tools } from '../src/tools.mjs';
import { plainInfo, writeStubs } from '../testing/stubs.mjs';
import { eventually, isAlive, temporaryFolder } from '../testing/world.mjs';

const gibibyte = 2 ** 30;
const roomy = { ...defaultLimits, intervalMs: 10, freeBytes: async () => 100 * gibibyte };

/** Work that only ends when it is told to, as a tool does. */
const endless = (signal) =>
  new Promise((_, reject) => {
    const onAbort = () => reject(new Cancelled());
    signal.aborted ? onAbort() : signal.addEventListener('abort', onAbort);
  });

async function begin(t, limits, work = endless) {
  const folder = await temporaryFolder(t);
  const controller = new AbortController();
  const context = { folder, signal: controller.signal, limits: { ...roomy, ...limits } };
  return { folder, controller, ended: withinLimits(context, work) };
}

test('work within the limits is left alone', async (t) => {
  const { ended } = await begin(t, {}, async (signal) => !signal.aborted);
  assert.equal(await ended, true);
});

test('work ends when less than 1 GiB of the disk is free', async (t) => {
  let free = 2 * gibibyte;
  const { ended } = await begin(t, { freeBytes: async () => (free -= gibibyte / 4) });
  await assert.rejects(ended, { message: 'The disk is nearly full: less than 1 GiB is free.' });
});

test('work does not even begin on a full disk', async (t) => {
  let seen;
  const work = async (signal) => endless((seen = signal));
  const { ended } = await begin(t, { freeBytes: async () => gibibyte - 1 }, work);
  await assert.rejects(ended, /nearly full/);
  assert.ok(seen.aborted);
});

test('work ends after 12 hours', async (t) => {
  assert.equal(defaultLimits.durationMs, 12 * 3600 * 1000);
  const { ended } = await begin(t, { durationMs: 20 });
  await assert.rejects(ended, /^Error: The job took longer than/);
});

test('work ends when its files grow beyond measure', async (t) => {
  const { folder, ended } = await begin(t, { bytes: 1000 });
  const rejected = assert.rejects(ended, /^Error: The media is larger than 1 GiB/);
  await writeFile(path.join(folder, 'a'), Buffer.alloc(600));
  await writeFile(path.join(folder, 'b'), Buffer.alloc(600));
  await rejected;
});

test('a cancelled job is cancelled, not over its limits', async (t) => {
  const { controller, ended } = await begin(t, {});
  controller.abort();
  await assert.rejects(ended, Cancelled);
});

test('what would leave less than 1 GiB of the disk is not begun', async () => {
  const limits = { ...roomy, freeBytes: async () => 5 * gibibyte };
  await requireRoom('/', 4 * gibibyte, limits);
  await assert.rejects(requireRoom('/', 4 * gibibyte + 1, limits), /not enough space on the disk: 6 GiB are needed/);
});

async function mediaWithStubs(t, scenario, limits) {
  const stubs = await writeStubs(await temporaryFolder(t), scenario);
  const config = { ytDlp: stubs.env.YT_DLP_PATH, ffmpeg: stubs.env.FFMPEG_PATH, ffprobe: stubs.env.FFPROBE_PATH };
  const tools = new Tools({ requireJobFolder: () => {} });
  const media = new Media({ config, tools, limits: { ...roomy, ...limits } });
  const context = { folder: await temporaryFolder(t), signal: new AbortController().signal, report: () => {} };
  const order = { link: 'https://media.example/clip', browserLogin: null, mode: 'audio' };
  return { stubs, ended: media.download(order, context) };
}

test('a download that never ends is ended with a sentence, and yt-dlp with it', async (t) => {
  const { stubs, ended } = await mediaWithStubs(t, { downloadHangs: true }, { durationMs: 3_000 });
  await assert.rejects(ended, /took longer than/);
  const [{ pid, child }] = await stubs.lines('hanging');
  await eventually('both are gone', () => !isAlive(pid) && !isAlive(child));
});

test('a medium that its site says is too large for the disk is not downloaded', async (t) => {
  const formats = [{ ...plainInfo.formats[1], filesize: 60 * gibibyte }];
  const { stubs, ended } = await mediaWithStubs(t, { info: { ...plainInfo, formats } });
  await assert.rejects(ended, /not enough space on the disk: 121 GiB are needed/);
  assert.equal((await stubs.lines('calls')).length, 1);
});
