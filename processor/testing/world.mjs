// What the tests share: processors started for real on a free port, requests to them, and private folders.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdtemp, readdir, readFile, rm } from 'node:fs/promises';
import http from 'node:http';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

const entry = fileURLToPath(new URL('../src/index.mjs', import.meta.url));
const runningStatuses = ['queued', 'probing', 'downloading', 'processing'];

export async function temporaryFolder(t) {
  const folder = await mkdtemp(path.join(os.tmpdir(), 'processor-test-'));
  // What a test has started may still be writing there.
  t.after(() => rm(folder, { recursive: true, force: true, maxRetries: 10 }));
  return folder;
}

export async function freePort() {
  const server = net.createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

/** Waits until `condition` (which may be async) holds; fails the test when it does not in time. */
export async function eventually(what, condition, limitMs = 30_000) {
  const deadline = performance.now() + limitMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    assert.ok(performance.now() < deadline, `not within ${limitMs} ms: ${what}`);
    await delay(20);
  }
}

export function isAlive(pid) {
  try {
    process.kill(pid, 0);
    return true;
  } catch {
    return false;
  }
}

/** The identifiers of the processes whose command line names this text. */
export async function processesNaming(text) {
  const pids = (await readdir('/proc')).filter((name) => /^[0-9]+$/.test(name));
  const lines = await Promise.all(pids.map((pid) => readFile(`/proc/${pid}/cmdline`, 'utf8').catch(() => '')));
  return pids.filter((_, index) => lines[index].includes(text)).map(Number);
}

/** Starts the processor with these variables added to a small environment; it need not come up. */
export function launch(t, env) {
  const child = spawn(process.execPath, [entry], {
    env: {
      PATH: '/usr/bin:/bin',
      HOME: os.tmpdir(),
      LD_LIBRARY_PATH: process.env.LD_LIBRARY_PATH ?? '',
      HOST: '127.0.0.1',
      ...env,
    },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  let output = '';
  for (const stream of [child.stdout, child.stderr]) stream.on('data', (chunk) => (output += chunk));
  const exited = new Promise((resolve) => child.once('close', (code, signal) => resolve({ code, signal })));
  t.after(async () => {
    child.kill('SIGINT');
    await exited;
  });
  return { child, exited, output: () => output };
}

/** Starts the processor, waits until it answers and returns ways to talk to it. */
export async function startProcessor(t, env = {}) {
  const port = await freePort();
  const tempRoot = env.TEMP_ROOT ?? path.join(await temporaryFolder(t), 'root');
  const launched = launch(t, { PORT: String(port), TEMP_ROOT: tempRoot, ...env });
  const processor = new Processor(port, tempRoot, launched);
  await eventually('the processor answers', async () => {
    assert.equal(launched.child.exitCode, null, launched.output());
    return launched.output().includes('start: ');
  });
  const health = await processor.request('GET', '/health');
  processor.token = health.headers['x-zunto-session-token'];
  return processor;
}

class Processor {
  constructor(port, tempRoot, { child, exited, output }) {
    Object.assign(this, { port, tempRoot, child, exited, output, token: undefined });
  }

  /** { status, headers, body, json } of one request; `body` may be an object, a text or bytes. */
  request(method, requestPath, { body, headers = {}, token } = {}) {
    const bytes = body === undefined || typeof body === 'string' || Buffer.isBuffer(body) ? body : JSON.stringify(body);
    return new Promise((resolve, reject) => {
      const request = http.request(
        {
          host: '127.0.0.1',
          port: this.port,
          method,
          path: requestPath,
          agent: false,
          headers: {
            ...(bytes === undefined ? {} : { 'Content-Length': Buffer.byteLength(bytes) }),
            ...(token === undefined ? {} : { Authorization: `Bearer ${token}` }),
            ...headers,
          },
        },
        async (response) => {
          const chunks = [];
          try {
            for await (const chunk of response) chunks.push(chunk);
          } catch (error) {
            reject(error);
          }
          const answer = Buffer.concat(chunks);
          resolve({ status: response.statusCode, headers: response.headers, body: answer, json: parse(answer) });
        },
      );
      request.on('error', reject);
      request.end(bytes);
    });
  }

  post(requestPath, body) {
    return this.request('POST', requestPath, { body, token: this.token });
  }

  /** Posts a job that must be accepted and resolves to its identifier. */
  async begin(requestPath, body) {
    const { status, json } = await this.post(requestPath, { permissionConfirmed: true, ...body });
    assert.equal(status, 202, JSON.stringify(json));
    return json.jobId;
  }

  async job(id) {
    return (await this.request('GET', `/jobs/${id}`)).json;
  }

  /** Follows a job to its end; resolves to its last state with all states seen in `seen`. */
  async follow(id, limitMs = 60_000) {
    const seen = [];
    await eventually(`job ${id} ends`, async () => {
      seen.push(await this.job(id));
      return !runningStatuses.includes(seen.at(-1).status);
    }, limitMs);
    return { ...seen.at(-1), seen };
  }

  /** An analysis or a job from its request to its end. */
  async complete(requestPath, body) {
    return this.follow(await this.begin(requestPath, body));
  }
}

function parse(bytes) {
  try {
    return JSON.parse(bytes);
  } catch {
    return undefined;
  }
}
