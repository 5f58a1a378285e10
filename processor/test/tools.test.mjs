import assert from 'node:assert/strict';
import test from 'node:test';

import { JobFailure } from '../src/errors.mjs';
import { Tools } from '../src/tools.mjs';

test('a program whose arguments are longer than the system takes fails like one that cannot be started', async () => {
  const tooLong = 'x'.repeat(8 * 1024 * 1024);
  await assert.rejects(
    new Tools().run('/bin/sh', [tooLong], { name: 'ffprobe' }),
    (error) => error instanceof JobFailure && error.message.startsWith('ffprobe could not be started'),
  );
});
