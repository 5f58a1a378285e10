// A processor that has every answer ready, in the place of the real one: what is measured is the helper alone.
// BENCH_LISTEN_DELAY_MS holds back its listening; BENCH_LISTENING_FILE receives the moment it listens (nanoseconds of
// the machine's steady clock).
import {createServer} from 'node:http';
import {writeFileSync} from 'node:fs';

const media = {
  duration: 3725,
  formats: [{quality: '1080p'}, {quality: '720p'}, {quality: '480p'}],
  subtitles: [{id: 'en', label: 'English'}, {id: 'de', label: 'Deutsch'}],
};
const result = Buffer.alloc(64 * 1024, 'x');
let analyses = 0;
let jobs = 0;

function answer(request, response) {
  const path = request.url;
  request.resume();
  if (path === '/health') return send(response, 200, {status: 'ok'}, {'X-ZUNTO-Session-Token': 'of-the-bench-1234'});
  if (path === '/probe') return send(response, 202, {jobId: `probe-${++analyses}`, status: 'queued'});
  if (path === '/jobs') return send(response, 202, {jobId: `job-${++jobs}`, status: 'queued'});
  if (path.endsWith('/result')) {
    response.writeHead(200, {'Content-Type': 'application/octet-stream', 'Content-Length': result.length});
    return response.end(result);
  }
  const id = path.split('/').pop();
  const found = {jobId: id, status: 'completed', progress: 100, title: `Film ${analyses}`, ...media};
  if (id.startsWith('job')) found.result = {kind: 'file', filename: 'film.mp4'};
  return send(response, 200, found);
}

function send(response, status, body, headers = {}) {
  const text = JSON.stringify(body);
  response.writeHead(status, {'Content-Type': 'application/json', 'Content-Length': Buffer.byteLength(text), ...headers});
  response.end(text);
}

const parent = process.ppid;
setInterval(() => {
  if (process.ppid !== parent) process.exit(0);
}, 500).unref();
process.on('SIGINT', () => process.exit(0));
setTimeout(() => {
  createServer(answer).listen(Number(process.env.PORT), process.env.HOST, () => {
    const file = process.env.BENCH_LISTENING_FILE;
    if (file) writeFileSync(file, String(process.hrtime.bigint()));
  });
}, Number(process.env.BENCH_LISTEN_DELAY_MS ?? 0));
