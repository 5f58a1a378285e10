// With the real yt-dlp and a made-up Chrome profile: the cookies of a login reach their own host alone. A yt-dlp that
// cannot promise that is not given them at all.

import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdir, readFile } from 'node:fs/promises';
import http from 'node:http';
import https from 'node:https';
import path from 'node:path';
import { test } from 'node:test';
import { promisify } from 'node:util';

import { makeCertificate, tools, writeSettings } from '../testing/media_server.mjs';
import { startProcessor, temporaryFolder } from '../testing/world.mjs';

const run = promisify(execFile);
const secret = 'secret-of-the-login';

const profileScript = `
import sqlite3, sys
with sqlite3.connect(sys.argv[1]) as profile:
    profile.execute("CREATE TABLE meta (key TEXT, value TEXT)")
    profile.execute("INSERT INTO meta VALUES ('version', '20')")
    profile.execute("CREATE TABLE cookies (host_key, name, value, encrypted_value, path, expires_utc, is_secure)")
    cookie = ('127.0.0.1', 'login', sys.argv[2], b'', '/', 13500000000000000, 1)
    profile.execute("INSERT INTO cookies VALUES (?, ?, ?, ?, ?, ?, ?)", cookie)
`;

async function makeHome(t) {
  const home = path.join(await temporaryFolder(t), 'home');
  const profile = path.join(home, '.config', 'google-chrome', 'Default');
  await mkdir(profile, { recursive: true });
  await run('python3', ['-c', profileScript, path.join(profile, 'Cookies'), secret]);
  await writeSettings(home);
  return home;
}

// A server that notes whether each request came with the login; resolves to { port, seen }.
async function serve(t, create, answer) {
  const seen = [];
  const server = create((request, response) => {
    seen.push({ url: request.url, login: (request.headers.cookie ?? '').includes(secret) });
    response.end(answer(request));
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  t.after(() => {
    server.close();
    server.closeAllConnections();
  });
  return { port: server.address().port, seen };
}

test('no other host gets the cookies of a login, nor does a connection that is not encrypted', async (t) => {
  const folder = await temporaryFolder(t);
  await makeCertificate(folder);
  const [key, cert] = await Promise.all(['key.pem', 'cert.pem'].map((name) => readFile(path.join(folder, name))));
  const secure = (handle) => https.createServer({ key, cert }, handle);
  const other = await serve(t, secure, () => 'bytes');
  const open = await serve(t, http.createServer, () => 'bytes');
  const segments = [`https://localhost:${other.port}/other.ts`, `http://127.0.0.1:${open.port}/open.ts`, '/own.ts'];
  const list = (own) => `#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\n${own}\n#EXT-X-ENDLIST\n`;
  const answer = ({ url }) => (url.endsWith('.ts') ? 'bytes' : list(segments[url[1]]));
  const site = await serve(t, secure, answer);

  const env = { YT_DLP_PATH: tools.ytDlp, FFMPEG_PATH: tools.ffmpeg, FFPROBE_PATH: tools.ffprobe };
  const processor = await startProcessor(t, { ...env, HOME: await makeHome(t) });
  for (const index of segments.keys()) {
    const media = { sourceUrl: `https://127.0.0.1:${site.port}/${index}.m3u8`, browserLogin: 'chrome' };
    const { status, json } = await processor.post('/jobs', { ...media, mode: 'audio', permissionConfirmed: true });
    if (status === 400) assert.match(json.error.message, /^Logins need yt-dlp/);
    else await processor.follow(json.jobId);
  }
  const isRefused = processor.output().includes('400 Logins need yt-dlp');
  assert.deepEqual([...other.seen, ...open.seen].filter(({ login }) => login), []);
  if (isRefused) assert.deepEqual(site.seen, []);
  else assert.ok(site.seen.some(({ login }) => login), 'the profile is read');
});
