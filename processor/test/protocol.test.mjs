// Has the conversation of docs/protocol.md with the processor, so that the document cannot go stale.

import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import http from 'node:http';
import { test } from 'node:test';

import { plainInfo, writeStubs } from '../testing/stubs.mjs';
import { eventually, startProcessor, temporaryFolder } from '../testing/world.mjs';

const document = new URL('../../docs/protocol.md', import.meta.url);
const writtenAddress = '127.0.0.1:43127';

// An analysis that waits until it was looked at, a video that never comes to its end and a link that cannot be saved.
const scenario = {
  inspectWaits: true,
  downloadHangs: true,
  reports: { video: [{ downloaded_bytes: 450, total_bytes: 900 }], audio: [] },
  infos: { 'https://media.example/live': { ...plainInfo, is_live: true } },
};

/** The examples of the document: { line, request, answer }, each message as { start, headers, body }. */
async function readExamples() {
  const text = await readFile(document, 'utf8');
  const fences = [...text.matchAll(/^```(.*)\n([^]*?)^```$/gm)];
  const messages = fences.map(({ 1: kind, 2: message, index }) => {
    const line = text.slice(0, index).split('\n').length;
    assert.equal(kind, 'http', `docs/protocol.md:${line}`);
    return { line, ...parseMessage(message) };
  });
  assert.equal(messages.length % 2, 0, 'every request has its answer');
  return messages.flatMap(({ line, ...request }, index) => {
    return index % 2 === 0 ? [{ line, request, answer: messages[index + 1] }] : [];
  });
}

function parseMessage(text) {
  const [, head, body = ''] = /^([^]*?)\n(?:\n([^]*))?$/.exec(text);
  const [start, ...lines] = head.split('\n');
  return { start, headers: lines.map((line) => /^([^:]+): (.*)$/.exec(line).slice(1)), body };
}

/** What stands in angle brackets: the first answer that shows a name tells its value for all that follow. */
class Names {
  #values = new Map();

  /** A text of the document with the values of this run, as far as they are known. */
  fill(text) {
    return text.replace(/<(\w+)>/g, (shown, name) => this.#values.get(name) ?? shown);
  }

  /** Whether `seen` is what the document shows; if so, its values are known from now on. */
  fits(shown, seen) {
    const literal = this.fill(shown).replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
    const pattern = literal.replace(/<(\w+)>/g, (bracketed, name, place) => {
      return literal.indexOf(bracketed) === place ? `(?<${name}>[\\w-]{16,})` : `\\k<${name}>`;
    });
    const fit = new RegExp(`^${pattern}$`).exec(seen);
    for (const [name, value] of Object.entries(fit?.groups ?? {})) this.#values.set(name, value);
    return fit !== null;
  }
}

/** An answer as one text; JSON without the blanks that a reader likes. */
function format({ start, headers, body }) {
  return `${start}\n${headers.map(([name, value]) => `${name}: ${value}\n`).join('')}\n${compact(body)}`;
}

function compact(text) {
  try {
    return JSON.stringify(JSON.parse(text));
  } catch {
    return text;
  }
}

async function send(processor, names, { start, headers, body }) {
  const [, method, path] = /^(\S+) (\S+) HTTP\/1\.1$/.exec(names.fill(start));
  const own = headers.map(([name, value]) => [
    name,
    names.fill(value).replace(writtenAddress, `127.0.0.1:${processor.port}`),
  ]);
  return processor.request(method, path, { headers: Object.fromEntries(own), ...(body ? { body } : {}) });
}

/** What came as one text, with those headers only that are shown. */
function asShown({ status, headers, body }, shown) {
  return format({
    start: `HTTP/1.1 ${status} ${http.STATUS_CODES[status]}`,
    headers: shown.headers.map(([name]) => [name, headers[name.toLowerCase()] ?? '(absent)']),
    body: body.toString(),
  });
}

const isPoll = ({ start }) => /^GET \/jobs\/[^/]+ /.test(start);
const isRunning = ({ json }) => ['queued', 'probing', 'downloading', 'processing'].includes(json?.status);

test('the examples of the document are what the processor answers', async (t) => {
  const examples = await readExamples();
  const stubs = await writeStubs(await temporaryFolder(t), scenario);
  const processor = await startProcessor(t, stubs.env);
  const names = new Names();
  for (const { line, request, answer } of examples) {
    const shown = format(answer);
    // A job is asked for again until it is as far as the document says.
    const deadline = performance.now() + 20_000;
    const seen = await eventually('the job goes on', async () => {
      const given = await send(processor, names, request);
      const text = asShown(given, answer);
      const maySayMore = isPoll(request) && isRunning(given) && performance.now() < deadline;
      return names.fits(shown, text) || !maySayMore ? text : undefined;
    });
    if (!names.fits(shown, seen)) assert.equal(seen, names.fill(shown), `docs/protocol.md:${line}`);
    if (isPoll(request)) await stubs.goOn();
  }
});

test('the document shows every request of the helper, with its headers', async () => {
  const shown = (await readExamples()).map(({ request }) => request);
  const plain = ['Host'];
  const typed = [...plain, 'Content-Type'];
  const authorised = [...typed, 'Authorization'];
  const requests = [
    [/^GET \/health /, plain],
    [/^POST \/probe /, authorised],
    [/^POST \/jobs /, authorised],
    [/^GET \/jobs\/[^/]+ /, typed],
    [/^POST \/jobs\/[^/]+\/cancel /, authorised],
    [/^GET \/jobs\/[^/]+\/result /, plain],
  ];
  for (const [pattern, headers] of requests) {
    const [first] = shown.filter(({ start }) => pattern.test(start));
    assert.deepEqual(first?.headers.map(([name]) => name), headers, `${pattern}`);
  }
});
