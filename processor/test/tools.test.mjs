import assert from 'node:assert/strict';
import test from 'node:test';

import { Cancelled, JobFailure } from '../src/errors.mjs';
import { Tools } from '../src/tools.mjs';
import { Workspace } from '../src/workspace.mjs';

const makeTools = () => new Tools(new Workspace('/nowhere'));

test('a program whose arguments are longer than the system takes fails like one that cannot be started', async () => {
  const tooLong = 'x'.repeat(8 * 1024 * 1024);
  await assert.rejects(
    makeTools().run('/bin/sh', [tooLong], { name: 'ffprobe' }),
    (error) => error instanceof JobFailure && error.message.startsWith('ffprobe could not be started'),
  );
});

// Leaves a process in its group that has ended and that its parent, which is in another group, does not reap.
const zombieScript = `
import os, time
keeper = os.fork()
if keeper == 0:
    zombie = os.fork()
    if zombie == 0:
        os._exit(0)
    for descriptor in range(3):
        os.close(descriptor)
    os.setpgid(0, 0)
    time.sleep(60)
print(keeper, flush=True)
time.sleep(60)
`;

test('a process in the group that was never reaped does not delay a cancellation', async (t) => {
  const controller = new AbortController();
  const begin = { time: 0 };
  const onLine = (line) => {
    t.after(() => process.kill(Number(line), 'SIGKILL'));
    setTimeout(() => {
      begin.time = performance.now();
      controller.abort();
    }, 200);
  };
  const options = { name: 'yt-dlp', signal: controller.signal, onLine };
  await assert.rejects(makeTools().run('/usr/bin/python3', ['-c', zombieScript], options), Cancelled);
  assert.ok(performance.now() - begin.time < 500);
});
