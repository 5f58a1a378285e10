// A processor that has every answer ready, in the place of the real one: what is looked at is the helper alone.
// BENCH_LISTEN_DELAY_MS holds back its listening; BENCH_LISTENING_FILE receives the moment it listens (nanoseconds of
// the machine's steady clock). RESULT_BYTES is the size of its result. HELD_FILE names a file that says what is held
// for as long as it says so: "listening", "analysis", "download", or "result", which then trickles after its first half.
import {createServer} from 'node:http';
import {readFileSync, writeFileSync} from 'node:fs';
import {watchParent} from '../../processor/src/parent.mjs';

const media = {
  duration: 3725,
  formats: [{quality: '1080p'}, {quality: '720p'}, {quality: '480p'}],
  subtitles: [{id: 'en', label: 'English'}, {id: 'de', label: 'Deutsch'}],
};
const lookEveryMs = 50;
const result = Buffer.alloc(Number(process.env.RESULT_BYTES ?? 64 * 1024), 'x');
let analyses = 0;
let jobs = 0;

const isHeld = (what) => Boolean(process.env.HELD_FILE) && readFileSync(process.env.HELD_FILE, 'utf8') === what;

function answer(request, response) {
  const path = request.url;
  request.resume();
  if (request.method === 'POST') console.log('POST', path);
  if (path === '/health') return send(response, 200, {status: 'ok'}, {'X-ZUNTO-Session-Token': 'of-the-bench-1234'});
  if (path === '/probe') return send(response, 202, {jobId: `probe-${++analyses}`, status: 'queued'});
  if (path === '/jobs') return send(response, 202, {jobId: `job-${++jobs}`, status: 'queued'});
  if (path.endsWith('/result')) return sendResult(response);
  const id = path.split('/').pop();
  const isDownload = id.startsWith('job');
  const [what, status] = isDownload ? ['download', 'downloading'] : ['analysis', 'probing'];
  if (isHeld(what)) return send(response, 200, {jobId: id, status, progress: 42, stage: 'Held…'});
  const found = {jobId: id, status: 'completed', progress: 100, title: `Film ${analyses}`, ...media};
  if (isDownload) found.result = {kind: 'file', filename: 'film.mp4'};
  return send(response, 200, found);
}

function send(response, status, body, headers = {}) {
  const text = JSON.stringify(body);
  response.writeHead(status, {'Content-Type': 'application/json', 'Content-Length': Buffer.byteLength(text), ...headers});
  response.end(text);
}

function sendResult(response) {
  response.writeHead(200, {'Content-Type': 'application/octet-stream', 'Content-Length': result.length});
  if (!isHeld('result')) return response.end(result);
  let sent = result.length / 2;
  response.write(result.subarray(0, sent));
  const trickle = setInterval(() => {
    if (isHeld('result')) return response.write(result.subarray(sent, ++sent));
    clearInterval(trickle);
    return response.end(result.subarray(sent));
  }, lookEveryMs);
  response.on('close', () => clearInterval(trickle));
}

function listen() {
  if (isHeld('listening')) return setTimeout(listen, lookEveryMs);
  return createServer(answer).listen(Number(process.env.PORT), process.env.HOST, () => {
    const file = process.env.BENCH_LISTENING_FILE;
    if (file) writeFileSync(file, String(process.hrtime.bigint()));
  });
}

watchParent(Number(process.env.ZUNTO_HELPER_PARENT_PID), () => process.exit(0));
process.on('SIGINT', () => process.exit(0));
setTimeout(listen, Number(process.env.BENCH_LISTEN_DELAY_MS ?? 0));
