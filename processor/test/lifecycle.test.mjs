import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync, mkdirSync, statSync, symlinkSync, writeFileSync } from 'node:fs';
import { readdir, rm } from 'node:fs/promises';
import net from 'node:net';
import path from 'node:path';
import { test } from 'node:test';

import { watchParent } from '../src/parent.mjs';
import { identify } from '../src/processes.mjs';
import { writeStubs } from '../testing/stubs.mjs';
import { eventually, freePort, isAlive, launch, startProcessor, temporaryFolder } from '../testing/world.mjs';

const link = 'https://media.example/clip';

// A processor with a download whose tool and grandchild run for good.
async function startHangingDownload(t, { deaf = false, env = {} } = {}) {
  const stubs = await writeStubs(await temporaryFolder(t), { downloadHangs: true, deaf });
  const processor = await startProcessor(t, { ...stubs.env, ...env });
  const jobId = await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  const [{ pid, child }] = await eventually('the tool hangs', async () => {
    const lines = await stubs.lines('hanging');
    return lines.length > 0 && lines;
  });
  return { processor, jobId, pids: [pid, child], stubs };
}

function isGone(pid) {
  return !identify(pid).alive;
}

async function runFolders(processor) {
  return (await readdir(processor.tempRoot)).filter((name) => name.startsWith('run-'));
}

for (const signal of ['SIGINT', 'SIGTERM']) {
  test(`${signal} ends the tools, removes the files and exits within two seconds`, async (t) => {
    const { processor, pids } = await startHangingDownload(t, { deaf: true });
    assert.equal((await runFolders(processor)).length, 1);
    const begin = performance.now();
    processor.child.kill(signal);
    assert.deepEqual(await processor.exited, { code: 0, signal: null });
    assert.ok(performance.now() - begin < 2_000);
    await eventually('the tools are gone', () => pids.every(isGone), 500);
    assert.deepEqual(await runFolders(processor), []);
    assert.match(processor.output(), new RegExp(`end: ${signal}`));
  });
}

test('a cancellation ends the whole process group, deaf or not, within two seconds and leaves no file', async (t) => {
  for (const deaf of [false, true]) {
    const { processor, jobId, pids } = await startHangingDownload(t, { deaf });
    const [run] = await runFolders(processor);
    const begin = performance.now();
    const { status, json } = await processor.post(`/jobs/${jobId}/cancel`, {});
    assert.ok(performance.now() - begin < 2_000);
    assert.equal(status, 200);
    assert.equal(json.status, 'cancelled');
    assert.ok(json.error.message);
    await eventually('the tools are gone', () => pids.every(isGone), 200);
    assert.deepEqual(await readdir(path.join(processor.tempRoot, run)), []);
    assert.equal((await processor.job(jobId)).status, 'cancelled');
  }
});

test('a waiting job is cancelled without ever running, and an ended one stays as it is', async (t) => {
  const { processor, stubs } = await startHangingDownload(t);
  await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  await eventually('two downloads run', async () => (await stubs.lines('hanging')).length === 2);
  const waiting = await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  assert.equal((await processor.job(waiting)).status, 'queued');
  const first = await processor.post(`/jobs/${waiting}/cancel`, {});
  assert.equal(first.json.status, 'cancelled');
  assert.deepEqual((await processor.post(`/jobs/${waiting}/cancel`, {})).json, first.json);
  assert.equal((await stubs.lines('hanging')).length, 2);
  assert.equal((await processor.complete('/probe', { sourceUrl: link })).status, 'completed');
});

test('a job that waits starts when another is cancelled', async (t) => {
  const { processor, jobId, stubs } = await startHangingDownload(t);
  await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  const third = await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  await processor.post(`/jobs/${jobId}/cancel`, {});
  await eventually('the third download runs', async () => (await stubs.lines('hanging')).length === 3);
  assert.equal((await processor.job(third)).status, 'downloading');
});

test('an analysis that hangs is ended by a cancellation as well', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t), { inspectHangs: true });
  const processor = await startProcessor(t, stubs.env);
  const jobId = await processor.begin('/probe', { sourceUrl: link });
  const [{ pid }] = await eventually('it hangs', async () => {
    const lines = await stubs.lines('hanging');
    return lines.length > 0 && lines;
  });
  await processor.post(`/jobs/${jobId}/cancel`, {});
  await eventually('the tool is gone', () => isGone(pid), 200);
});

test('what a tool leaves behind in its group ends with the tool', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t), { leavesChild: true });
  const processor = await startProcessor(t, stubs.env);
  assert.equal((await processor.complete('/probe', { sourceUrl: link })).status, 'completed');
  const [{ child }] = await stubs.lines('hanging');
  await eventually('the rest of the group is gone', () => isGone(child), 1_000);
});

// Stands in for the helper: prints the processor's pid and waits to be killed.
function spawnHelper(t, env) {
  const entry = new URL('../src/index.mjs', import.meta.url).pathname;
  const script = `
    const { spawn } = require('child_process');
    const env = { ...process.env, ZUNTO_HELPER_PARENT_PID: String(process.pid) };
    const child = spawn(process.execPath, [${JSON.stringify(entry)}], { env, stdio: ['ignore', 'inherit', 'inherit'] });
    console.log('pid=' + child.pid);
    setInterval(() => {}, 1000);
  `;
  const helper = spawn(process.execPath, ['-e', script], {
    env: { ...process.env, ...env },
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  let output = '';
  helper.stdout.on('data', (chunk) => (output += chunk));
  t.after(() => helper.kill('SIGKILL'));
  return { helper, output: () => output };
}

test('when the helper was killed, the processor and its tools are gone within five seconds', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t), { downloadHangs: true, deaf: true });
  const port = await freePort();
  const tempRoot = path.join(await temporaryFolder(t), 'root');
  const address = { HOST: '127.0.0.1', PORT: String(port) };
  const { helper, output } = spawnHelper(t, { ...stubs.env, ...address, TEMP_ROOT: tempRoot });
  await eventually('the processor listens', () => output().includes('start: '));
  const processorPid = Number(/pid=(\d+)/.exec(output())[1]);
  const base = `http://127.0.0.1:${port}`;
  const token = (await fetch(`${base}/health`)).headers.get('x-zunto-session-token');
  await fetch(`${base}/jobs`, {
    method: 'POST',
    headers: { Authorization: `Bearer ${token}` },
    body: JSON.stringify({ sourceUrl: link, permissionConfirmed: true, mode: 'audio' }),
  });
  const [{ pid, child }] = await eventually('the tool hangs', async () => {
    const lines = await stubs.lines('hanging');
    return lines.length > 0 && lines;
  });
  helper.kill('SIGKILL');
  await eventually('everything is gone', () => [processorPid, pid, child].every(isGone), 5_000);
  assert.deepEqual(await readdir(tempRoot), []);
});

test('a helper that is not the own parent is watched too', async (t) => {
  const other = spawn('/bin/sleep', ['100']);
  t.after(() => other.kill('SIGKILL'));
  const processor = await startProcessor(t, { ZUNTO_HELPER_PARENT_PID: String(other.pid) });
  other.kill('SIGKILL');
  const begin = performance.now();
  assert.deepEqual(await processor.exited, { code: 0, signal: null });
  assert.ok(performance.now() - begin < 5_000);
  assert.match(processor.output(), /end: the helper is gone/);
});

test('a helper that lives keeps the processor running', async (t) => {
  const processor = await startProcessor(t, { ZUNTO_HELPER_PARENT_PID: String(process.pid) });
  await new Promise((resolve) => setTimeout(resolve, 1_500));
  assert.equal((await processor.request('GET', '/health')).status, 200);
});

test('a helper is gone when its number belongs to a later process', async () => {
  const starts = ['100', '100', '100', '200'];
  const look = () => ({ alive: true, startTime: starts.length > 1 ? starts.shift() : starts[0] });
  await new Promise((resolve) => watchParent(7, resolve, { look, ownParent: () => 1, everyMs: 1 }));
  assert.deepEqual(starts, ['200']);
});

test('a helper is gone when the processor got another parent', async () => {
  const parents = [7, 7, 1];
  const ownParent = () => (parents.length > 1 ? parents.shift() : parents[0]);
  const look = () => ({ alive: true, startTime: null });
  await new Promise((resolve) => watchParent(7, resolve, { look, ownParent, everyMs: 1 }));
  assert.deepEqual(parents, [1]);
});

test('a run folder that was cleaned away is made again for the next job', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t));
  const processor = await startProcessor(t, stubs.env);
  await rm(processor.tempRoot, { recursive: true });
  assert.equal((await processor.complete('/probe', { sourceUrl: link })).status, 'completed');
});

test('a helper that is gone already ends the processor at once', async (t) => {
  const other = spawn('/bin/true');
  await new Promise((resolve) => other.once('exit', resolve));
  const address = { PORT: String(await freePort()), TEMP_ROOT: await temporaryFolder(t) };
  const { exited } = launch(t, { ...address, ZUNTO_HELPER_PARENT_PID: String(other.pid) });
  assert.equal((await exited).code, 0);
});

test('when the processor itself was killed, its tools and files go as well', async (t) => {
  const { processor, pids } = await startHangingDownload(t, { deaf: true });
  processor.child.kill('SIGKILL');
  await processor.exited;
  await eventually('the tools are gone', () => pids.every(isGone), 2_000);
  await eventually('the files are gone', async () => (await runFolders(processor)).length === 0, 2_000);
});

test('a port that is taken ends the program at once with one clear line', async (t) => {
  const stranger = net.createServer();
  await new Promise((resolve) => stranger.listen(0, '127.0.0.1', resolve));
  t.after(() => stranger.close());
  const { port } = stranger.address();
  const tempRoot = path.join(await temporaryFolder(t), 'root');
  const begin = performance.now();
  const { exited, output } = launch(t, { PORT: String(port), TEMP_ROOT: tempRoot });
  const { code } = await exited;
  assert.ok(performance.now() - begin < 2_000);
  assert.equal(code, 1);
  assert.match(output(), new RegExp(`^\\S+ cannot start: port ${port} on 127\\.0\\.0\\.1 is already in use\\n$`));
  assert.equal(existsSync(tempRoot), false, 'nothing on disk is touched without the port');
});

test('settings that cannot be used end the program with a line that names them', async (t) => {
  const cases = [
    [{ PORT: '0' }, /PORT/],
    [{ PORT: '65536' }, /PORT/],
    [{ PORT: 'http' }, /PORT/],
    [{ HOST: '0.0.0.0' }, /HOST/],
    [{ TEMP_ROOT: 'relative' }, /TEMP_ROOT/],
    [{ ZUNTO_HELPER_PARENT_PID: '-1' }, /ZUNTO_HELPER_PARENT_PID/],
  ];
  for (const [env, pattern] of cases) {
    const { exited, output } = launch(t, { PORT: '1', TEMP_ROOT: '/nowhere', ...env });
    assert.equal((await exited).code, 1);
    assert.match(output(), pattern);
    assert.equal(output().trim().split('\n').length, 1);
  }
});

test('the temporary folder is made, private, with one folder per run', async (t) => {
  const tempRoot = path.join(await temporaryFolder(t), 'several', 'levels');
  const processor = await startProcessor(t, { TEMP_ROOT: tempRoot });
  const [run] = await runFolders(processor);
  assert.equal(statSync(tempRoot).mode & 0o777, 0o700);
  assert.equal(statSync(path.join(tempRoot, run)).mode & 0o777, 0o700);
});

test('a link in place of the temporary folder is not followed', async (t) => {
  const folder = await temporaryFolder(t);
  mkdirSync(path.join(folder, 'target'));
  symlinkSync(path.join(folder, 'target'), path.join(folder, 'root'));
  const { exited, output } = launch(t, { PORT: String(await freePort()), TEMP_ROOT: path.join(folder, 'root') });
  assert.equal((await exited).code, 1);
  assert.match(output(), /temporary folder cannot be used/);
  assert.deepEqual(await readdir(path.join(folder, 'target')), []);
});

test('folders of dead runs are removed at the start, those of living runs and strangers stay', async (t) => {
  const tempRoot = await temporaryFolder(t);
  const dead = spawn('/bin/true');
  await new Promise((resolve) => dead.once('exit', resolve));
  const own = identify(process.pid).startTime ?? 'unknown';
  const names = {
    dead: `run-${dead.pid}-1`,
    reused: `run-${process.pid}-1`,
    living: `run-${process.pid}-${own}`,
    stranger: 'run-notes',
  };
  for (const name of Object.values(names)) {
    mkdirSync(path.join(tempRoot, name));
    writeFileSync(path.join(tempRoot, name, 'file'), 'content');
  }
  const processor = await startProcessor(t, { TEMP_ROOT: tempRoot });
  const exists = (name) => existsSync(path.join(tempRoot, name, 'file'));
  await eventually('dead runs are removed', () => !exists(names.dead) && !exists(names.reused));
  assert.ok(exists(names.living));
  assert.ok(exists(names.stranger));
  assert.equal((await processor.request('GET', '/health')).status, 200);
});

test('a missing tool is named in the log and in the failure of the job', async (t) => {
  const env = { YT_DLP_PATH: '/nowhere/yt-dlp', FFMPEG_PATH: '/nowhere/ffmpeg', FFPROBE_PATH: '/nowhere/ffprobe' };
  const processor = await startProcessor(t, env);
  assert.match(processor.output(), /warning: yt-dlp cannot be run at \/nowhere\/yt-dlp/);
  const { status, error } = await processor.complete('/probe', { sourceUrl: link });
  assert.equal(status, 'failed');
  assert.equal(error.message, 'yt-dlp could not be found.');
});

test('a log that has vanished does not disturb the processor', async (t) => {
  const processor = await startProcessor(t);
  processor.child.stdout.destroy();
  for (let count = 0; count < 5; count += 1) await processor.request('GET', '/nothing');
  assert.equal((await processor.request('GET', '/health')).status, 200);
  assert.ok(isAlive(processor.child.pid));
});
