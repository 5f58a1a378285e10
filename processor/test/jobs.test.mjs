import assert from 'node:assert/strict';
import { test } from 'node:test';

import { JobFailure } from '../src/errors.mjs';
import { JobStore } from '../src/jobs.mjs';

const hour = 3_600_000;

// A store whose clock the test turns and whose folders exist in name only.
function makeStore(limits) {
  const clock = { now: 0, timers: [] };
  // Timers run when the test says so, whatever their time.
  const setTimer = (callback) => {
    clock.timers.push(callback);
    return { unref() {} };
  };
  const folders = new Set();
  const lines = [];
  let count = 0;
  const workspace = {
    newJobFolder: async () => {
      const folder = `folder-${(count += 1)}`;
      folders.add(folder);
      return folder;
    },
    removeJobFolder: async (folder) => folders.delete(folder),
  };
  const storeClock = { now: () => clock.now, setTimeout: setTimer };
  const store = new JobStore({ workspace, log: (line) => lines.push(line), limits, clock: storeClock });
  return { store, clock, folders, lines };
}

async function addFinished(store) {
  const job = store.add('download', 'video', async () => ({ result: { file: 'file', filename: 'name' } }));
  await job.ended;
  return job;
}

test('a result that nobody has fetched is kept for many hours, one that was fetched is not', async () => {
  const { store, clock, folders } = makeStore();
  const [waiting, fetched] = [await addFinished(store), await addFinished(store)];
  store.markFetched(fetched);
  clock.now = hour - 1;
  assert.ok(store.find(fetched.id), 'a fetch can be repeated for a while');
  clock.now = hour + 1;
  assert.equal(store.find(fetched.id), undefined);
  assert.deepEqual([...folders], [waiting.folder]);
  clock.now = 23 * hour;
  assert.ok(store.find(waiting.id));
  clock.now = 25 * hour;
  assert.equal(store.find(waiting.id), undefined);
  assert.equal(folders.size, 0);
});

test('a result expires also while nobody asks for anything', async () => {
  const { store, clock, folders } = makeStore();
  const [waiting, fetched] = [await addFinished(store), await addFinished(store)];
  store.markFetched(fetched);
  const passTo = async (time) => {
    clock.now = time;
    assert.equal(clock.timers.length, 1);
    clock.timers.shift()();
    await new Promise(setImmediate);
  };
  await passTo(hour - 1);
  assert.equal(folders.size, 2);
  await passTo(hour + 1);
  assert.deepEqual([...folders], [waiting.folder]);
  await passTo(25 * hour);
  assert.equal(folders.size, 0);
  assert.equal(clock.timers.length, 0, 'nothing is left to look after');
});

test('too many results make the oldest go, but none that could not have been fetched yet', async () => {
  const { store, clock, folders } = makeStore({ results: 2 });
  const early = [await addFinished(store), await addFinished(store), await addFinished(store)];
  assert.ok(early.every((job) => store.find(job.id)));
  clock.now = 2 * hour;
  const late = await addFinished(store);
  assert.deepEqual(early.map((job) => Boolean(store.find(job.id))), [false, false, true]);
  assert.ok(store.find(late.id));
  assert.equal(folders.size, 2);
});

test('the list of finished jobs is bounded', async () => {
  const { store } = makeStore({ finished: 3 });
  const jobs = [];
  for (let count = 0; count < 6; count += 1) {
    const job = store.add('analysis', 'probe', async () => ({ answer: {} }));
    await job.ended;
    jobs.push(job);
  }
  assert.deepEqual(jobs.map((job) => Boolean(store.find(job.id))), [false, false, false, true, true, true]);
});

test('only so many jobs of a kind run, and only so many wait', async () => {
  const { store } = makeStore({ running: { analysis: 1, download: 1 }, waiting: { analysis: 1, download: 1 } });
  const gate = {};
  const open = new Promise((resolve) => (gate.open = resolve));
  const add = (kind) => store.add(kind, kind, () => open);
  const [first, analysis, second] = [add('download'), add('analysis'), add('download')];
  assert.throws(() => add('download'), /Too many/);
  assert.equal(second.folder, null);
  gate.open();
  await Promise.all([first, analysis, second].map((job) => job.ended));
  assert.equal(second.status, 'completed');
});

test('downloads that wait do not keep an analysis from being taken', async () => {
  const { store } = makeStore({ waiting: { analysis: 1, download: 2 } });
  const downloads = [1, 2, 3, 4].map(() => store.add('download', 'video', () => new Promise(() => {})));
  assert.throws(() => store.add('download', 'video', async () => ({})), /Too many/);
  const analysis = store.add('analysis', 'probe', async () => ({}));
  await analysis.ended;
  assert.equal(analysis.status, 'completed');
  assert.deepEqual(downloads.map((job) => job.status), ['queued', 'queued', 'queued', 'queued']);
});

test('a folder that is gone is told apart from a fault of the program', async () => {
  const { store } = makeStore();
  for (const code of ['ENOENT', 'EEXIST']) {
    const error = Object.assign(new Error(`${code}: /tmp/secret/info.json`), { code });
    const job = store.add('download', 'video', () => Promise.reject(error));
    await job.ended;
    assert.match(job.error.message, /temporary folder was removed or replaced/);
  }
});

test('progress never goes back and reaches 100 with the end alone', async () => {
  const { store } = makeStore();
  const seen = [];
  const job = store.add('download', 'video', async ({ report }) => {
    for (const progress of [10, 5, NaN, undefined, 120, 50]) {
      report({ progress });
      seen.push(job.progress);
    }
    return {};
  });
  await job.ended;
  assert.deepEqual(seen, [10, 10, 10, 10, 99, 99]);
  assert.equal(job.progress, 100);
});

test('what the work returns is the answer and the result of the job, unless it was cancelled meanwhile', async () => {
  const { store, folders } = makeStore();
  const outcome = { answer: { title: 'A clip' }, result: { file: 'file', filename: 'clip.mp4' } };
  const whole = store.add('download', 'video', async () => outcome);
  const late = store.add('download', 'video', async () => {
    store.cancel(late);
    return outcome;
  });
  await Promise.all([whole.ended, late.ended]);
  const { title, result } = JSON.parse(JSON.stringify(whole));
  assert.deepEqual([title, result.filename], ['A clip', 'clip.mp4']);
  const { status, ...rest } = JSON.parse(JSON.stringify(late));
  assert.equal(status, 'cancelled');
  assert.ok(!('title' in rest) && !('result' in rest));
  assert.deepEqual([...folders], [whole.folder]);
});

test('a failure carries its message and leaves no folder', async () => {
  const { store, folders } = makeStore();
  const job = store.add('download', 'video', async () => {
    throw new JobFailure('Out of luck.');
  });
  await job.ended;
  const { status, error } = JSON.parse(JSON.stringify(job));
  assert.deepEqual({ status, error }, { status: 'failed', error: { message: 'Out of luck.' } });
  assert.equal(folders.size, 0);
});

test('a full disk and a fault of the program are told apart from a tool that fails', async () => {
  const { store, lines } = makeStore();
  const failing = (error) => store.add('download', 'video', () => Promise.reject(error));
  const full = failing(Object.assign(new Error('ENOSPC: /secret/path'), { code: 'ENOSPC' }));
  const fault = failing(new TypeError('undefined is not a function'));
  await Promise.all([full.ended, fault.ended]);
  assert.match(full.error.message, /no space left/);
  assert.match(fault.error.message, /unexpected error/);
  assert.ok(lines.some((line) => line.includes('undefined is not a function')));
});

test('after the shutdown nothing runs and nothing is accepted', async () => {
  const { store, folders } = makeStore({ running: { analysis: 1, download: 1 } });
  const untilAborted = ({ signal }) => new Promise((resolve) => signal.addEventListener('abort', resolve));
  const jobs = [1, 2].map(() => store.add('download', 'video', untilAborted));
  await new Promise(setImmediate);
  await store.shutDown();
  assert.deepEqual(jobs.map((job) => job.status), ['cancelled', 'cancelled']);
  assert.equal(folders.size, 0);
  assert.throws(() => store.add('download', 'video', untilAborted), /stopping/);
});
