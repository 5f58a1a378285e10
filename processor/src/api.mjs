// The HTTP side: who may ask, which requests exist, and how answers and failures are written.

import { open } from 'node:fs/promises';
import http from 'node:http';
import path from 'node:path';
import { pipeline } from 'node:stream/promises';

import { RequestError } from './errors.mjs';
import { Offers, readBody, readJobRequest, readMediaRequest } from './requests.mjs';
import { sameSecret } from './secrets.mjs';

const tokenHeader = 'X-ZUNTO-Session-Token';
const ignoredBodyLimit = 16 * 1024 * 1024;
const resultChunkBytes = 1024 * 1024;
const contentTypes = {
  '.mp4': 'video/mp4',
  '.webm': 'video/webm',
  '.mkv': 'video/x-matroska',
  '.m4a': 'audio/mp4',
  '.mp3': 'audio/mpeg',
  '.vtt': 'text/vtt; charset=utf-8',
  '.srt': 'application/x-subrip; charset=utf-8',
};

/** The HTTP server, not yet listening. */
export function createApi({ config, token, jobs, media, log }) {
  const offers = new Offers();
  const routes = [
    { pattern: /^\/health$/, method: 'GET', serve: health },
    { pattern: /^\/probe$/, method: 'POST', serve: probe },
    { pattern: /^\/jobs$/, method: 'POST', serve: createJob },
    { pattern: /^\/jobs\/([^/]+)$/, method: 'GET', serve: showJob },
    { pattern: /^\/jobs\/([^/]+)\/cancel$/, method: 'POST', serve: cancelJob },
    { pattern: /^\/jobs\/([^/]+)\/result$/, method: 'GET', serve: sendResult },
  ];

  // Whoever can read this answer may use the processor: web pages cannot, since requests of theirs that could
  // read it carry an Origin or another Host.
  function health(request, response) {
    answer(response, 200, { status: 'ok' }, { [tokenHeader]: token });
  }

  async function probe(request, response) {
    const order = readMediaRequest(await readBody(request));
    const job = jobs.add('analysis', 'probe', async (...context) => {
      const { qualities, trackIds } = await media.analyse(order, ...context);
      offers.remember(order.link, qualities, trackIds);
    });
    answer(response, 202, job);
  }

  async function createJob(request, response) {
    const order = readJobRequest(await readBody(request), offers);
    const job = jobs.add('download', order.mode, (...context) => media.download(order, ...context));
    answer(response, 202, job);
  }

  function showJob(request, response, id) {
    answer(response, 200, findJob(id));
  }

  async function cancelJob(request, response, id) {
    const job = findJob(id);
    await readBody(request);
    await jobs.cancel(job);
    answer(response, 200, job);
  }

  async function sendResult(request, response, id) {
    const job = findJob(id);
    if (job.status !== 'completed' || !job.result) throw new RequestError(409, 'This job has no file to download.');
    const { file, filename } = job.result;
    const handle = await open(file).catch(() => {
      throw new RequestError(410, 'The file of this job is no longer there.');
    });
    const { size } = await handle.stat();
    response.writeHead(200, {
      ...commonHeaders,
      'Content-Type': contentTypes[path.extname(file)] ?? 'application/octet-stream',
      'Content-Length': size,
      'Content-Disposition': `attachment; filename*=UTF-8''${encodeURIComponent(filename)}`,
    });
    try {
      await pipeline(handle.createReadStream({ highWaterMark: resultChunkBytes }), response);
      jobs.markFetched(job);
    } catch (error) {
      log(`result of job ${job.shortId} was not fetched to its end: ${error.message}`);
    }
  }

  function findJob(id) {
    const job = jobs.find(id);
    if (!job) throw new RequestError(404, 'This job is not known, or no longer.');
    return job;
  }

  function route(request) {
    const [pathname] = request.url.split('?');
    const known = routes.filter(({ pattern }) => pattern.test(pathname));
    if (known.length === 0) throw new RequestError(404, 'The local processor has nothing at this address.');
    const found = known.find(({ method }) => method === request.method);
    if (!found) throw new RequestError(405, 'This method is not allowed here.', { Allow: known[0].method });
    return { serve: found.serve, id: found.pattern.exec(pathname)[1] };
  }

  async function handle(request, response) {
    try {
      refuseStrangers(request, config.address);
      const { serve, id } = route(request);
      if (request.method === 'POST') requireToken(request, token);
      await serve(request, response, id);
    } catch (error) {
      await readRest(request);
      fail(request, response, error);
    }
  }

  function fail(request, response, error) {
    const known = error instanceof RequestError;
    if (!known && request.destroyed && !request.complete) {
      log(`request failed: ${describe(request)}: the client went away`);
      response.destroy();
      return;
    }
    const { status, message, headers } = known
      ? error
      : new RequestError(500, 'The local processor met an unexpected error. Its log has the details.');
    log(`request failed: ${describe(request)}: ${status} ${known ? message : error.stack}`);
    if (response.headersSent) response.destroy();
    else answer(response, status, { error: { message } }, headers);
  }

  const server = http.createServer({ requireHostHeader: false }, handle);
  // Job requests of the helper come 0.7 s apart; an idle connection may well serve the next one.
  server.keepAliveTimeout = 65_000;
  server.on('clientError', (error, socket) => {
    log(`request failed: not HTTP: ${error.code ?? error.message}`);
    if (!socket.writable) return socket.destroy();
    const body = JSON.stringify({ error: { message: 'The request is not valid HTTP.' } });
    const head = `HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\nContent-Length: ${body.length}`;
    return socket.end(`${head}\r\nConnection: close\r\n\r\n${body}`);
  });
  return server;
}

const commonHeaders = { 'Cache-Control': 'no-store', 'X-Content-Type-Options': 'nosniff' };

// A web page must not reach the processor: not from its own origin, and not through a name of its own that it has
// pointed at the loopback address.
function refuseStrangers(request, address) {
  // The parsed headers hide a second Host.
  const isValueOf = (name) => (_, index, raw) => index % 2 === 1 && raw[index - 1].toLowerCase() === name;
  const valuesOf = (name) => request.rawHeaders.filter(isValueOf(name));
  const hosts = valuesOf('host');
  if (hosts.length !== 1 || hosts[0].trim().toLowerCase() !== address) {
    throw new RequestError(403, 'The local processor answers to its own address only.');
  }
  if (valuesOf('origin').length > 0) throw new RequestError(403, 'The local processor does not answer web pages.');
}

// A connection that is closed while the client still sends is reset, and the client may then never see the answer.
async function readRest(request) {
  let size = 0;
  try {
    for await (const chunk of request) {
      size += chunk.length;
      if (size > ignoredBodyLimit) return;
    }
  } catch {
    // The client went away; the caller finds that out by itself.
  }
}

function requireToken(request, token) {
  const [, candidate = ''] = /^Bearer (.*)$/i.exec(request.headers.authorization ?? '') ?? [];
  if (!sameSecret(candidate, token)) {
    throw new RequestError(401, 'The session token is missing or no longer valid. Open the import window again.', {
      'WWW-Authenticate': 'Bearer',
    });
  }
}

function answer(response, status, value, headers = {}) {
  const body = Buffer.from(JSON.stringify(value));
  response.writeHead(status, {
    ...commonHeaders,
    'Content-Type': 'application/json; charset=utf-8',
    'Content-Length': body.length,
    ...headers,
  });
  response.end(body);
}

// Whoever knows a whole job identifier can fetch its result, so the log gets the beginning only.
function describe(request) {
  const [pathname] = request.url.split('?');
  const shortened = pathname.replace(/^(\/jobs\/[^/]{6})[^/]+/, '$1…');
  return `${request.method} ${shortened.length > 200 ? `${shortened.slice(0, 200)}…` : shortened}`;
}
