import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import http from 'node:http';
import net from 'node:net';
import { test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';

import { createApi } from '../src/api.mjs';
import { refuseUnsafeLogin } from '../src/logins.mjs';
import { writeStubs } from '../testing/stubs.mjs';
import { eventually, startProcessor, temporaryFolder } from '../testing/world.mjs';

const link = 'https://media.example/clip';
const media = { sourceUrl: link, permissionConfirmed: true };

async function startWithStubs(t, scenario) {
  const stubs = await writeStubs(await temporaryFolder(t), scenario);
  return { processor: await startProcessor(t, stubs.env), stubs };
}

function assertRefused({ status, json }, expectedStatus, pattern = /./) {
  assert.equal(status, expectedStatus, JSON.stringify(json));
  assert.deepEqual(Object.keys(json), ['error']);
  assert.deepEqual(Object.keys(json.error), ['message']);
  assert.match(json.error.message, pattern);
}

function exchange(port, text) {
  return new Promise((resolve, reject) => {
    const socket = net.connect(port, '127.0.0.1', () => socket.write(text));
    let answer = '';
    socket.on('data', (chunk) => (answer += chunk));
    socket.on('close', () => resolve(answer));
    socket.on('error', reject);
  });
}

test('health answers ok and hands out the session token', async (t) => {
  const { processor } = await startWithStubs(t);
  const { status, json, headers } = await processor.request('GET', '/health');
  assert.equal(status, 200);
  assert.deepEqual(json, { status: 'ok' });
  assert.ok(Buffer.from(headers['x-zunto-session-token'], 'base64url').length >= 16, 'at least 128 bits');
  assert.equal(headers['x-zunto-session-token'], processor.token);
});

test('every run has another token', async (t) => {
  const [first, second] = [await startWithStubs(t), await startWithStubs(t)];
  assert.notEqual(first.processor.token, second.processor.token);
});

test('another Host than the own address is refused and learns no token', async (t) => {
  const { processor } = await startWithStubs(t);
  const others = [`localhost:${processor.port}`, 'evil.example', `127.0.0.1:${processor.port + 1}`, '127.0.0.1'];
  for (const host of others) {
    const answer = await processor.request('GET', '/health', { headers: { Host: host } });
    assertRefused(answer, 403);
    assert.equal(answer.headers['x-zunto-session-token'], undefined, host);
  }
});

test('a request without a Host, or with two, is refused', async (t) => {
  const { processor } = await startWithStubs(t);
  const own = `Host: 127.0.0.1:${processor.port}\r\n`;
  for (const hosts of ['', 'Host:\r\n', own + own, `${own}Host: evil.example\r\n`]) {
    const answer = await exchange(processor.port, `GET /health HTTP/1.1\r\n${hosts}Connection: close\r\n\r\n`);
    assert.match(answer, /^HTTP\/1\.1 40[03] /);
    assert.doesNotMatch(answer, /session-token/i);
  }
  const answer = await exchange(processor.port, `GET /health HTTP/1.1\r\n${own}Connection: close\r\n\r\n`);
  assert.match(answer, /^HTTP\/1\.1 200 /);
});

test('a request that carries an Origin is refused, whatever its value', async (t) => {
  const { processor } = await startWithStubs(t);
  for (const origin of ['https://www.zunto.example', 'null', '', `http://127.0.0.1:${processor.port}`]) {
    const answer = await processor.request('GET', '/health', { headers: { Origin: origin } });
    assertRefused(answer, 403);
    assert.equal(answer.headers['x-zunto-session-token'], undefined);
  }
});

test('an Origin is found behind any number of other headers', async (t) => {
  const { processor } = await startWithStubs(t);
  const lines = [`Host: 127.0.0.1:${processor.port}`, ...Array(2_100).fill('a:'), 'Origin: https://evil.example'];
  const head = `GET /health HTTP/1.1\r\nConnection: close\r\n${lines.join('\r\n')}\r\n\r\n`;
  const answer = await exchange(processor.port, head);
  assert.match(answer, /^HTTP\/1\.1 403 /);
  assert.doesNotMatch(answer, /session-token/i);
});

test('what a page makes the browser ask for is refused also without an Origin', async (t) => {
  const { processor } = await startWithStubs(t);
  for (const site of ['cross-site', 'same-site', 'same-origin', '']) {
    assertRefused(await processor.request('GET', '/health', { headers: { 'Sec-Fetch-Site': site } }), 403);
  }
  const typed = await processor.request('GET', '/health', { headers: { 'Sec-Fetch-Site': 'none' } });
  assert.equal(typed.status, 200);
});

test('requests that change state need the token', async (t) => {
  const { processor } = await startWithStubs(t);
  const id = await processor.begin('/probe', { sourceUrl: link });
  for (const path of ['/probe', '/jobs', `/jobs/${id}/cancel`, '/jobs/unknown/cancel']) {
    for (const token of [undefined, '', 'wrong', `${processor.token}x`, processor.token.slice(1)]) {
      assertRefused(await processor.request('POST', path, { body: media, token }), 401);
    }
  }
});

test('a refusal waits until the client has sent everything, or it would meet a closed connection', async (t) => {
  const { processor } = await startWithStubs(t);
  const host = `Host: 127.0.0.1:${processor.port}`;
  const head = `POST /probe HTTP/1.1\r\n${host}\r\nConnection: close\r\nContent-Length: 10\r\n\r\n`;
  const socket = net.connect(processor.port, '127.0.0.1', () => socket.write(`${head}12345`));
  let answer = '';
  socket.on('data', (chunk) => (answer += chunk));
  const closed = new Promise((resolve, reject) => socket.on('close', resolve).on('error', reject));
  await delay(200);
  assert.equal(answer, '');
  socket.write('67890');
  await closed;
  assert.match(answer, /^HTTP\/1\.1 401 /);
});

test('unknown paths and wrong methods are answered in the envelope', async (t) => {
  const { processor } = await startWithStubs(t);
  assertRefused(await processor.request('GET', '/'), 404);
  assertRefused(await processor.request('GET', '/jobs/unknown/more/still'), 404);
  assertRefused(await processor.request('GET', '/jobs/unknown'), 404);
  assertRefused(await processor.request('GET', '/jobs/unknown/result'), 404);
  assertRefused(await processor.post('/jobs/unknown/cancel', {}), 404);
  assertRefused(await processor.request('POST', '/health', { body: {} }), 405);
  assertRefused(await processor.request('GET', '/probe'), 405);
  assertRefused(await processor.request('DELETE', '/jobs'), 405);
});

test('what is not HTTP gets the envelope too', async (t) => {
  const { processor } = await startWithStubs(t);
  const answer = await exchange(processor.port, 'nonsense\r\n\r\n');
  assert.match(answer, /^HTTP\/1\.1 400 /);
  assert.ok(JSON.parse(answer.split('\r\n\r\n')[1]).error.message);
});

test('headers that are too large are refused in the envelope', async (t) => {
  const { processor } = await startWithStubs(t);
  const answer = await exchange(processor.port, `GET /health HTTP/1.1\r\nA: ${'a'.repeat(100_000)}\r\n\r\n`);
  assert.match(answer, /^HTTP\/1\.1 431 /);
  assert.match(JSON.parse(answer.split('\r\n\r\n')[1]).error.message, /headers .* too large/);
});

test('a request whose head or body never comes is refused and its connection closed', { timeout: 20_000 }, async (t) => {
  const lines = [];
  const server = createApi({
    config: { address: '127.0.0.1' },
    token: 'token',
    log: (line) => lines.push(line),
    requestLimitMs: 200,
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  t.after(() => server.close());
  const head = 'POST /probe HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer token\r\n';
  for (const text of [head, `${head}Content-Length: 10\r\n\r\n12345`]) {
    const answer = await exchange(server.address().port, text);
    assert.match(answer, /^HTTP\/1\.1 408 /);
    assert.match(JSON.parse(answer.split('\r\n\r\n')[1]).error.message, /in time/);
  }
  assert.match(lines.join(), /408/);
});

test('a body that is no JSON object is refused', async (t) => {
  const { processor } = await startWithStubs(t);
  const invalidUtf8 = Buffer.concat([Buffer.from('{"sourceUrl":"'), Buffer.from([0xff, 0xfe]), Buffer.from('"}')]);
  for (const body of ['', '{', 'null', '[]', '"text"', '[['.repeat(50_000), invalidUtf8]) {
    assertRefused(await processor.post('/probe', body), 400, /JSON/);
  }
});

test('a body that is too large is refused, and the processor lives on', async (t) => {
  const { processor } = await startWithStubs(t);
  const body = { ...media, sourceUrl: `https://media.example/${'a'.repeat(5_000_000)}` };
  assertRefused(await processor.post('/probe', body), 413);
  assert.equal((await processor.request('GET', '/health')).status, 200);
});

test('a link that cannot be processed is refused', async (t) => {
  const { processor } = await startWithStubs(t);
  const texts = [undefined, null, 7, '', '   ', 'media', '--version', 'https://'];
  const others = ['http://media.example/', 'file:///etc/passwd', 'ftp://a.example/'];
  const tooLong = `https://media.example/${'a'.repeat(100_000)}`;
  for (const sourceUrl of [...texts, ...others, tooLong]) {
    assertRefused(await processor.post('/probe', { ...media, sourceUrl }), 400);
  }
});

test('permission has to be confirmed with true itself', async (t) => {
  const { processor } = await startWithStubs(t);
  for (const permissionConfirmed of [undefined, false, 'true', 1]) {
    for (const path of ['/probe', '/jobs']) {
      assertRefused(await processor.post(path, { ...media, mode: 'audio', permissionConfirmed }), 400, /permission/);
    }
  }
});

test('an unknown browser or mode is refused', async (t) => {
  const { processor } = await startWithStubs(t);
  assertRefused(await processor.post('/probe', { ...media, browserLogin: 'firefox; rm' }), 400, /browser/i);
  for (const mode of [undefined, 'Video', 'constructor', 3]) {
    assertRefused(await processor.post('/jobs', { ...media, mode }), 400, /output/);
  }
});

test('a login is refused with a yt-dlp that shows it to other sites, or whose version is unknown', async (t) => {
  for (const [version, found] of [['2023.03.04', /2023\.03\.04 would show/], ['unknown', /cannot be told/]]) {
    const { processor, stubs } = await startWithStubs(t, { version });
    for (const path of ['/probe', '/jobs']) {
      const answer = await processor.post(path, { ...media, mode: 'audio', browserLogin: 'chrome' });
      assertRefused(answer, 400, /Logins need yt-dlp 2023\.07\.06 or newer\..* Update yt-dlp, or choose "Anonymous"/);
      assert.match(answer.json.error.message, found);
    }
    assert.deepEqual(await stubs.lines('calls'), []);
    assert.equal((await processor.complete('/probe', { sourceUrl: link })).status, 'completed');
  }
});

test('the log names the version of yt-dlp, which is asked once', async (t) => {
  const { processor, stubs } = await startWithStubs(t, { version: '2024.12.13.232724' });
  await processor.complete('/probe', { sourceUrl: link, browserLogin: 'chrome' });
  await processor.complete('/probe', { sourceUrl: link, browserLogin: 'chrome' });
  assert.match(processor.output(), /yt-dlp is 2024\.12\.13\n/);
  assert.equal((await stubs.lines('versions')).length, 1);
});

test('a Safari login is possible on a Mac only', () => {
  const refusal = /^Error: Safari logins exist only on a Mac\. Choose another access\.$/;
  assert.throws(() => refuseUnsafeLogin('safari', '2025.01.15', 'linux'), refusal);
  assert.doesNotThrow(() => refuseUnsafeLogin('safari', '2025.01.15', 'darwin'));
  assert.doesNotThrow(() => refuseUnsafeLogin('chrome', '2023.07.06', 'linux'));
  assert.throws(() => refuseUnsafeLogin('safari', '2023.07.05', 'darwin'), /2023\.07\.06 or newer/);
});

test('a quality that was never offered is refused', async (t) => {
  const { processor } = await startWithStubs(t);
  await processor.complete('/probe', { sourceUrl: link });
  for (const quality of [undefined, '', 'No video quality available', '1080p', '720', '720P']) {
    assertRefused(await processor.post('/jobs', { ...media, mode: 'video', quality }), 400, /quality/);
  }
  assert.equal((await processor.post('/jobs', { ...media, mode: 'video', quality: '720p' })).status, 202);
});

test('a subtitle job needs a track that exists and a known format', async (t) => {
  const { processor } = await startWithStubs(t);
  await processor.complete('/probe', { sourceUrl: link });
  const post = (track) => processor.post('/jobs', { ...media, mode: 'subtitle', ...track });
  assertRefused(await post({}), 400, /track/);
  assertRefused(await post({ subtitleLanguage: '', subtitleFormat: 'vtt' }), 400, /track/);
  assertRefused(await post({ subtitleLanguage: 'subtitle:fr', subtitleFormat: 'vtt' }), 400, /track/);
  assertRefused(await post({ subtitleLanguage: 'subtitle:en', subtitleFormat: 'ass' }), 400, /VTT/);
});

test('a result is fetched without a token, whole and with its length', async (t) => {
  const { processor } = await startWithStubs(t, { resultBytes: 12_345 });
  const { jobId, result } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  assert.deepEqual(result, { kind: 'file', downloadUrl: `/jobs/${jobId}/result`, filename: 'A clip.m4a' });
  const { status, headers, body } = await processor.request('GET', `/jobs/${jobId}/result`);
  assert.equal(status, 200);
  assert.equal(headers['content-length'], '12345');
  assert.equal(body.length, 12_345);
});

test('a client that closes as soon as it has all bytes has fetched the result', async (t) => {
  const resultBytes = 3_000_000;
  const { processor } = await startWithStubs(t, { resultBytes });
  const { jobId } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  const address = `http://127.0.0.1:${processor.port}/jobs/${jobId}/result`;
  const fetchOnce = (wanted) =>
    new Promise((resolve) => {
      const request = http.get(address, { agent: false }, (response) => {
        let received = 0;
        response.on('data', (chunk) => {
          received += chunk.length;
          if (received >= wanted) request.destroy();
        });
        response.on('error', () => {});
        request.on('close', resolve);
      });
    });
  const count = (text) => processor.output().split(text).length - 1;
  for (let fetches = 1; fetches <= 10; fetches += 1) {
    await fetchOnce(resultBytes);
    await eventually('the result is fetched', () => count(' audio: fetched') === fetches);
  }
  assert.equal(count('not fetched to its end'), 0);
  await fetchOnce(1);
  await eventually('the result is not fetched', () => count('not fetched to its end') === 1);
  assert.equal(count(' audio: fetched'), 10);
});

test('a job without a file has no result to fetch', async (t) => {
  const { processor } = await startWithStubs(t);
  const { jobId, result } = await processor.complete('/probe', { sourceUrl: link });
  assert.equal(result, undefined);
  assertRefused(await processor.request('GET', `/jobs/${jobId}/result`), 409);
});

test('a large result does not pass through the memory', async (t) => {
  const resultBytes = 600_000_000;
  const { processor } = await startWithStubs(t, { resultBytes });
  const { jobId } = await processor.complete('/jobs', { sourceUrl: link, mode: 'audio' });
  let received = 0;
  const response = await fetch(`http://127.0.0.1:${processor.port}/jobs/${jobId}/result`);
  for await (const chunk of response.body) received += chunk.length;
  assert.equal(received, resultBytes);
  const memory = await readFile(`/proc/${processor.child.pid}/status`, 'utf8');
  const peakKilobytes = Number(/VmHWM:\s+(\d+)/.exec(memory)[1]);
  assert.ok(peakKilobytes < 300_000, `${peakKilobytes} kB`);
});

test('job identifiers cannot be guessed', async (t) => {
  const { processor } = await startWithStubs(t);
  const ids = [];
  for (let count = 0; count < 3; count += 1) ids.push(await processor.begin('/probe', { sourceUrl: link }));
  assert.equal(new Set(ids).size, ids.length);
  for (const id of ids) {
    assert.match(id, /^[\w-]+$/);
    assert.ok(Buffer.from(id, 'base64url').length >= 16);
  }
});

test('the log names failed requests and never a secret', async (t) => {
  const { processor } = await startWithStubs(t);
  const { jobId } = await processor.complete('/jobs', { sourceUrl: `${link}?key=secret-in-link`, mode: 'audio' });
  for (const place of ['/jobs/ID/nothing', '/jobs//ID', '//jobs/ID/result', '/ID', '/JOBS/ID', '/jobs%2FID']) {
    await processor.request('GET', place.replace('ID', jobId));
  }
  await processor.request('POST', `/jobs/${jobId}/cancel?token=${processor.token}`, { token: 'wrong', body: {} });
  await eventually('the last line is written', () => /request failed: POST .*: 401/.test(processor.output()));
  const output = processor.output();
  assert.match(output, /request failed: GET .*: 404/);
  assert.match(output, /job \S+ audio: downloading/);
  assert.match(output, /job \S+ audio: completed/);
  for (const secret of [processor.token, jobId, 'secret-in-link']) assert.ok(!output.includes(secret), secret);
});
