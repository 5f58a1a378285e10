import assert from 'node:assert/strict';
import { chmodSync, mkdirSync, readdirSync, renameSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { LostFolder } from '../src/errors.mjs';
import { Tools } from '../src/tools.mjs';
import { Workspace } from '../src/workspace.mjs';
import { writeStubs } from '../testing/stubs.mjs';
import { eventually, processesNaming, startProcessor, temporaryFolder } from '../testing/world.mjs';

const link = 'https://media.example/clip';

async function openWorkspace(t, options) {
  const root = path.join(await temporaryFolder(t), 'root');
  const lines = [];
  const workspace = new Workspace(root, { log: (line) => lines.push(line), ...options });
  return { root, workspace, lines };
}

test('a folder of another user in the place of the temporary folder is not used', async (t) => {
  const { workspace } = await openWorkspace(t, { owner: process.getuid() + 1 });
  assert.throws(() => workspace.open(), /belongs to another user/);
  assert.throws(() => workspace.newJobFolder(), LostFolder);
});

test('a temporary folder that everybody may change is used only where owners alone move files in it', async (t) => {
  const { root, workspace } = await openWorkspace(t);
  mkdirSync(root);
  chmodSync(root, 0o777);
  assert.throws(() => workspace.open(), /can be changed by every user/);
  chmodSync(root, 0o1777);
  workspace.open();
});

test('folders that were replaced during the run are noticed, each of them, and the log says which', async (t) => {
  const replacements = [
    (root) => root,
    (root, run) => run,
    (root, run, job) => job,
  ];
  for (const choose of replacements) {
    const { root, workspace, lines } = await openWorkspace(t);
    workspace.open();
    const job = workspace.newJobFolder();
    workspace.requireJobFolder(job);
    const place = choose(root, workspace.folder, job);
    renameSync(place, `${root}-moved`);
    symlinkSync(`${root}-moved`, place);
    assert.throws(() => workspace.requireJobFolder(job), LostFolder);
    assert.ok(lines.at(-1).includes(`${place} is not a folder`), lines.at(-1));
    if (place !== job) assert.throws(() => workspace.newJobFolder(), LostFolder);
  }
});

test('no tool is started in a folder that is not the own one any more', async (t) => {
  const { root, workspace } = await openWorkspace(t);
  workspace.open();
  const folder = workspace.newJobFolder();
  renameSync(root, `${root}-moved`);
  symlinkSync(`${root}-moved`, root);
  const touch = new Tools(workspace).run('/usr/bin/touch', ['made'], { name: 'touch', folder });
  await assert.rejects(touch, LostFolder);
  assert.deepEqual(readdirSync(folder), []);
});

test('what a tool says about a folder that went away under it is not shown', async (t) => {
  const { root, workspace } = await openWorkspace(t);
  workspace.open();
  const folder = workspace.newJobFolder();
  const script = `rm -r '${root}'; echo 'FileNotFoundError: /tmp/x' >&2; exit 1`;
  await assert.rejects(new Tools(workspace).run('/bin/sh', ['-c', script], { name: 'yt-dlp', folder }), LostFolder);
});

test('a job does not write through a link that was put in the place of the temporary folder', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t));
  const processor = await startProcessor(t, stubs.env);
  const victim = path.join(await temporaryFolder(t), 'victim');
  mkdirSync(victim);
  rmSync(processor.tempRoot, { recursive: true });
  symlinkSync(victim, processor.tempRoot);
  const { status, error } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  assert.equal(status, 'failed');
  assert.equal(error.message, new LostFolder().message);
  assert.deepEqual(readdirSync(victim), []);
});

test('a job does not write over files that were put in the place of its folder', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t), { inspectWaits: true });
  const processor = await startProcessor(t, stubs.env);
  const id = await processor.begin('/jobs', { sourceUrl: link, mode: 'audio' });
  const [{ cwd }] = await eventually('yt-dlp runs', async () => {
    const calls = await stubs.lines('calls');
    return calls.length > 0 && calls;
  });
  const victim = path.join(await temporaryFolder(t), 'victim');
  const inside = path.relative(processor.tempRoot, cwd);
  mkdirSync(path.join(victim, inside), { recursive: true });
  const file = path.join(victim, inside, 'info.json');
  writeFileSync(file, 'mine');
  renameSync(processor.tempRoot, `${processor.tempRoot}-moved`);
  symlinkSync(victim, processor.tempRoot);
  await stubs.goOn();
  const { status, error } = await processor.follow(id);
  assert.deepEqual([status, error.message], ['failed', new LostFolder().message]);
  assert.equal(await readFile(file, 'utf8'), 'mine');
});

test('nothing is removed through a link in the place of the temporary folder at the end', async (t) => {
  for (const signal of ['SIGINT', 'SIGKILL']) {
    const processor = await startProcessor(t);
    const moved = `${processor.tempRoot}-moved`;
    renameSync(processor.tempRoot, moved);
    symlinkSync(moved, processor.tempRoot);
    const [run] = readdirSync(moved);
    processor.child.kill(signal);
    await processor.exited;
    await eventually('the guard has ended', async () => (await processesNaming(processor.tempRoot)).length === 0);
    assert.deepEqual(readdirSync(moved), [run]);
  }
});

test('a result is not sent from a folder that was replaced', async (t) => {
  const stubs = await writeStubs(await temporaryFolder(t));
  const processor = await startProcessor(t, stubs.env);
  const { jobId } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  renameSync(processor.tempRoot, `${processor.tempRoot}-moved`);
  symlinkSync(`${processor.tempRoot}-moved`, processor.tempRoot);
  const { status, json } = await processor.request('GET', `/jobs/${jobId}/result`);
  assert.equal(status, 410);
  assert.match(json.error.message, /no longer there/);
});
