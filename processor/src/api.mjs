// The HTTP side: who may ask, which requests exist, and how answers and failures are written.

import http from 'node:http';
import path from 'node:path';

import { RequestError } from './errors.mjs';
import { refuseUnsafeLogin } from './logins.mjs';
import { Offers, readBody, readJobRequest, readMediaRequest } from './requests.mjs';
import { sameSecret } from './secrets.mjs';

const tokenHeader = 'X-ZUNTO-Session-Token';
const ignoredBodyLimit = 16 * 1024 * 1024;
const resultChunkBytes = 1024 * 1024;
const contentTypes = new Map([
  ['.mp4', 'video/mp4'],
  ['.webm', 'video/webm'],
  ['.mkv', 'video/x-matroska'],
  ['.m4a', 'audio/mp4'],
  ['.mp3', 'audio/mpeg'],
  ['.vtt', 'text/vtt; charset=utf-8'],
  ['.srt', 'application/x-subrip; charset=utf-8'],
]);

/**
 * @typedef {import('node:http').IncomingMessage} Request
 * @typedef {import('node:http').ServerResponse} Response
 * @typedef {Record<string, string | number>} Headers
 */

/**
 * The HTTP server, not yet listening.
 * @param {object} parts
 * @param {Pick<import('./config.mjs').Config, 'address'>} parts.config
 * @param {string} parts.token
 * @param {import('./jobs.mjs').JobStore} parts.jobs
 * @param {import('./media.mjs').Media} parts.media
 * @param {() => Promise<string | null>} parts.ytDlpVersion
 * @param {(line: string) => void} parts.log
 * @param {number} [parts.requestLimitMs] a request that is not whole by then is refused
 */
export function createApi({ config, token, jobs, media, ytDlpVersion, log, requestLimitMs = 30_000 }) {
  const offers = new Offers();
  /** @type {WeakMap<import('node:stream').Duplex, Response>} the latest of each connection */
  const responses = new WeakMap();
  const routes = [
    { pattern: /^\/health$/, method: 'GET', serve: health },
    { pattern: /^\/probe$/, method: 'POST', serve: probe },
    { pattern: /^\/jobs$/, method: 'POST', serve: createJob },
    { pattern: /^\/jobs\/([^/]+)$/, method: 'GET', serve: showJob },
    { pattern: /^\/jobs\/([^/]+)\/cancel$/, method: 'POST', serve: cancelJob },
    { pattern: /^\/jobs\/([^/]+)\/result$/, method: 'GET', serve: sendResult },
  ];

  /**
   * Whoever can read this answer may use the processor: web pages cannot, since requests of theirs that could read it
   * carry an Origin or another Host.
   * @param {Request} request
   * @param {Response} response
   */
  function health(request, response) {
    answer(response, 200, { status: 'ok' }, { [tokenHeader]: token });
  }

  /**
   * @param {Request} request
   * @param {Response} response
   */
  async function probe(request, response) {
    const order = readMediaRequest(await readBody(request));
    await refuseLogin(order);
    const job = jobs.add('analysis', 'probe', async (context) => {
      const { answer: found, qualities, trackIds } = await media.analyse(order, context);
      offers.remember(order.link, qualities, trackIds);
      return { answer: found };
    });
    answer(response, 202, job);
  }

  /**
   * @param {Request} request
   * @param {Response} response
   */
  async function createJob(request, response) {
    const order = readJobRequest(await readBody(request), offers);
    await refuseLogin(order);
    const job = jobs.add('download', order.mode, (context) => media.download(order, context));
    answer(response, 202, job);
  }

  /** @param {import('./requests.mjs').MediaOrder} order */
  async function refuseLogin({ browserLogin }) {
    if (browserLogin) refuseUnsafeLogin(browserLogin, await ytDlpVersion());
  }

  /**
   * @param {Request} request
   * @param {Response} response
   * @param {string} id
   */
  function showJob(request, response, id) {
    answer(response, 200, findJob(id));
  }

  /**
   * @param {Request} request
   * @param {Response} response
   * @param {string} id
   */
  async function cancelJob(request, response, id) {
    const job = findJob(id);
    await readBody(request);
    await jobs.cancel(job);
    answer(response, 200, job);
  }

  /**
   * @param {Request} request
   * @param {Response} response
   * @param {string} id
   */
  async function sendResult(request, response, id) {
    const job = findJob(id);
    if (job.status !== 'completed' || !job.result) throw new RequestError(409, 'This job has no file to download.');
    const { file, filename } = job.result;
    const handle = await jobs.openResult(job.result).catch(() => {
      throw new RequestError(410, 'The file of this job is no longer there.');
    });
    try {
      const { size } = await handle.stat();
      response.writeHead(200, {
        ...commonHeaders,
        'Content-Type': contentTypes.get(path.extname(file)) ?? 'application/octet-stream',
        'Content-Length': size,
        'Content-Disposition': `attachment; filename*=UTF-8''${encodeURIComponent(filename)}`,
      });
      await sendBytes(handle, size, response);
      jobs.markFetched(job);
    } catch (error) {
      log(`result of job ${job.shortId} was not fetched to its end: ${error.message}`);
      response.destroy();
    } finally {
      await handle.close();
    }
  }

  /** @param {string} id */
  function findJob(id) {
    const job = jobs.find(id);
    if (!job) throw new RequestError(404, 'This job is not known, or no longer.');
    return job;
  }

  /** @param {Request} request */
  function route(request) {
    const pathname = pathOf(request);
    const known = routes.filter(({ pattern }) => pattern.test(pathname));
    if (known.length === 0) throw new RequestError(404, 'The local processor has nothing at this address.');
    const found = known.find(({ method }) => method === request.method);
    if (!found) throw new RequestError(405, 'This method is not allowed here.', { Allow: known[0].method });
    return { serve: found.serve, id: found.pattern.exec(pathname)?.[1] ?? '' };
  }

  /**
   * @param {Request} request
   * @param {Response} response
   */
  async function handle(request, response) {
    responses.set(request.socket, response);
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

  /**
   * @param {Request} request
   * @param {Response} response
   * @param {Error} error
   */
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

  const options = {
    // A missing Host is refused like a wrong one.
    requireHostHeader: false,
    headersTimeout: requestLimitMs,
    requestTimeout: requestLimitMs,
    connectionsCheckingInterval: requestLimitMs / 10,
  };
  const server = http.createServer(options, handle);
  // Lines beyond a limit of their number would be dropped unseen, an Origin among them; their size is limited anyway.
  server.maxHeadersCount = 0;
  // Job requests of the helper come 0.7 s apart; an idle connection may well serve the next one.
  server.keepAliveTimeout = 65_000;
  server.on('clientError', (/** @type {NodeJS.ErrnoException} */ { code = 'unknown' }, socket) => {
    const { status, message } = refusals.get(code) ?? { status: 400, message: 'The request is not valid HTTP.' };
    log(`request failed: ${status} ${message} (${code})`);
    const answered = responses.get(socket);
    const isInAnswer = answered?.headersSent && !answered.writableFinished;
    if (!socket.writable || isInAnswer) return socket.destroy();
    const body = JSON.stringify({ error: { message } });
    const head = `HTTP/1.1 ${status} ${http.STATUS_CODES[status]}\r\nContent-Type: application/json`;
    return socket.end(`${head}\r\nContent-Length: ${body.length}\r\nConnection: close\r\n\r\n${body}`);
  });
  return server;
}

// What the HTTP parser refuses by itself.
const refusals = new Map([
  ['HPE_HEADER_OVERFLOW', { status: 431, message: 'The headers of the request are too large.' }],
  ['HPE_CHUNK_EXTENSIONS_OVERFLOW', { status: 413, message: 'The request is too large.' }],
  ['ERR_HTTP_REQUEST_TIMEOUT', { status: 408, message: 'The request did not come to its end in time.' }],
]);

const commonHeaders = { 'Cache-Control': 'no-store', 'X-Content-Type-Options': 'nosniff' };

/**
 * A web page must not reach the processor: not from its own origin, and not through a name of its own that it has
 * pointed at the loopback address.
 * @param {Request} request
 * @param {string} address
 */
function refuseStrangers(request, address) {
  // The parsed headers hide a second Host.
  const { rawHeaders } = request;
  const valuesOf = (/** @type {string} */ name) =>
    rawHeaders.filter((_, index) => index % 2 === 1 && rawHeaders[index - 1].toLowerCase() === name);
  const hosts = valuesOf('host');
  if (hosts.length !== 1 || hosts[0].trim().toLowerCase() !== address) {
    throw new RequestError(403, 'The local processor answers to its own address only.');
  }
  const isOfPage = valuesOf('origin').length > 0 || valuesOf('sec-fetch-site').some((site) => site.trim() !== 'none');
  if (isOfPage) throw new RequestError(403, 'The local processor does not answer web pages.');
}

/**
 * A connection that is closed while the client still sends is reset, and the client may then never see the answer.
 * @param {Request} request
 */
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

/**
 * Resolves when the client's side of the connection has taken all bytes. A client that knows the length closes as soon
 * as it has them, which may be before the answer counts as finished here.
 * @param {import('node:fs/promises').FileHandle} handle
 * @param {number} size
 * @param {Response} response
 */
async function sendBytes(handle, size, response) {
  const gone = new Promise((_, reject) => response.once('close', () => reject(new Error('the client went away'))));
  gone.catch(() => {});
  const chunk = Buffer.allocUnsafe(Math.min(size, resultChunkBytes));
  for (let sent = 0; sent < size; ) {
    const { bytesRead } = await handle.read(chunk, 0, chunk.length, sent);
    if (bytesRead === 0) throw new Error('the file is shorter than it was');
    const bytes = chunk.subarray(0, Math.min(bytesRead, size - sent));
    const written = new Promise((resolve, reject) => {
      response.write(bytes, (error) => (error ? reject(error) : resolve(undefined)));
    });
    await Promise.race([written, gone]);
    sent += bytes.length;
  }
  response.end();
}

/**
 * @param {Request} request
 * @param {string} token
 */
function requireToken(request, token) {
  const [, candidate = ''] = /^Bearer (.*)$/i.exec(request.headers.authorization ?? '') ?? [];
  if (!sameSecret(candidate, token)) {
    throw new RequestError(401, 'The session token is missing or no longer valid. Open the import window again.', {
      'WWW-Authenticate': 'Bearer',
    });
  }
}

/**
 * @param {Response} response
 * @param {number} status
 * @param {unknown} value
 * @param {Headers} [headers]
 */
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

/** @param {Request} request */
function pathOf({ url = '/' }) {
  return url.split('?')[0];
}

/**
 * Whoever knows a whole job identifier can fetch its result, so the log gets the beginning only.
 * @param {Request} request
 */
function describe(request) {
  const shortened = pathOf(request).replace(/([\w%-]{6})[\w%-]{14,}/g, '$1…');
  return `${request.method} ${shortened.length > 200 ? `${shortened.slice(0, 200)}…` : shortened}`;
}
