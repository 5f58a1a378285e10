// A processor without media: it speaks the whole protocol, and its jobs run by the clock. The macOS program
// starts and stops it in a test as it would the real one.
import http from 'node:http';

const token = 'scripted-token';
const jobs = new Map();

const analysis = {
  title: 'A Film',
  duration: 61,
  formats: [{ quality: '1080p' }, { quality: '720p' }],
  subtitles: [{ id: 'en', label: 'English', original: true }],
};

function statusOf(job) {
  const age = Date.now() - job.started;
  if (job.cancelled) return { status: 'cancelled' };
  if (age < job.length) return { status: 'downloading', progress: (100 * age) / job.length, stage: 'Fetching' };
  return { status: 'completed', progress: 100, ...job.outcome };
}

function start(length, outcome) {
  const jobId = `job${jobs.size + 1}`;
  jobs.set(jobId, { started: Date.now(), length, outcome, cancelled: false });
  return { jobId, status: 'queued' };
}

function answer(response, status, body) {
  const text = JSON.stringify(body);
  response.writeHead(status, { 'content-type': 'application/json', 'x-zunto-session-token': token });
  response.end(text);
}

function handlePost(path, body, response) {
  if (path === '/probe') {
    answer(response, 202, start(200, analysis));
  } else if (path === '/jobs') {
    const isEndless = body.mode === 'audio';
    const result = { kind: 'file', filename: 'A Film.mp4' };
    answer(response, 202, start(isEndless ? 3600_000 : 900, { result }));
  } else {
    jobs.get(path.split('/')[2]).cancelled = true;
    answer(response, 200, null);
  }
}

function handleGet(path, response) {
  if (path === '/health') {
    answer(response, 200, { status: 'ok' });
    return;
  }
  const [, , jobId, part] = path.split('/');
  if (part === 'result') {
    response.end('the film');
  } else {
    answer(response, 200, { jobId, ...statusOf(jobs.get(jobId)) });
  }
}

const server = http.createServer((request, response) => {
  const pieces = [];
  request.on('data', (piece) => pieces.push(piece));
  request.on('end', () => {
    if (request.method === 'GET') {
      handleGet(request.url, response);
    } else if (request.headers.authorization !== `Bearer ${token}`) {
      answer(response, 401, { error: { message: 'no token' } });
    } else {
      handlePost(request.url, JSON.parse(Buffer.concat(pieces).toString()), response);
    }
  });
});

process.on('SIGINT', () => {
  console.log('interrupted');
  process.exit(0);
});
console.log(`exempt: ${process.env.no_proxy}`);
server.listen(Number(process.env.PORT), process.env.HOST, () => console.log(`listening as ${process.pid}`));
