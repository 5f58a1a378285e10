// Runs yt-dlp, ffmpeg and ffprobe. Every tool leads a process group of its own, so that whatever it starts ends
// with it. A guard, a small shell script that notices the death of this process, ends the groups that were left
// when the processor itself was killed.

import { spawn } from 'node:child_process';
import { setTimeout as delay } from 'node:timers/promises';

import { Cancelled, JobFailure } from './errors.mjs';
import { groupLives } from './processes.mjs';

// A cancelled tool is asked to end, then killed; together well below the two seconds that a cancellation may take.
const termGraceMs = 700;
const killGraceMs = 500;
const groupPollMs = 20;
// A stray descendant may keep the pipes open although the tool and its group have ended.
const pipeGraceMs = 1_000;
const defaultOutputLimit = 64 * 1024 * 1024;
const errorOutputLimit = 64 * 1024;
const lineLimit = 64 * 1024;

const guardScript = `
trap '' INT TERM HUP
root=$1 folder=$2
groups=' '
while read -r verb group; do
  case $verb in
    add) groups="$groups$group " ;;
    drop) groups="\${groups%% $group *} \${groups#* $group }" ;;
  esac
done
for group in $groups; do kill -s KILL -- "-$group" 2>/dev/null; done
# What somebody else has put in the place of the root is left alone.
if [ -O "$root" ] && [ ! -L "$root" ]; then rm -rf -- "$folder"; fi
`;

/**
 * @typedef {object} RunOptions
 * @property {string} name what the user knows the program as
 * @property {string} [folder] of the job, in which it runs
 * @property {NodeJS.ProcessEnv} [env]
 * @property {AbortSignal} [signal]
 * @property {(line: string) => void} [onLine] gets each line of standard output as it comes; without it the output is
 *     collected
 * @property {number} [timeoutMs]
 * @property {number} [outputLimit] bytes of collected output
 *
 * @typedef {object} RunEnd
 * @property {number | null} code
 * @property {NodeJS.Signals | null} signal
 * @property {string} stdout
 * @property {string} stderr the last part of it
 */

export class Tools {
  /** @type {Set<number>} */
  #groups = new Set();
  /** @type {import('node:stream').Writable | null} */
  #guard = null;
  #workspace;

  /** @param {import('./workspace.mjs').Workspace} workspace it knows whether the folder of a job is still its own */
  constructor(workspace) {
    this.#workspace = workspace;
  }

  /** Starts the guard, which also removes the run's folder when this process dies without having done so. */
  startGuard() {
    const { root, folder } = this.#workspace;
    // stdin is the lifeline: the kernel closes it whatever ends this process.
    const guard = spawn('/bin/sh', ['-c', guardScript, 'guard', root, folder], {
      cwd: '/',
      detached: true,
      stdio: ['pipe', 'ignore', 'ignore'],
    });
    guard.on('error', () => {});
    guard.stdin.on('error', () => {});
    guard.unref();
    this.#guard = guard.stdin;
  }

  /**
   * Runs one program to its end.
   *
   * Rejects with Cancelled once the whole group is gone after `signal` was aborted, with LostFolder when the folder is
   * not the job's any more, and with JobFailure when the program cannot be started, writes too much or needs longer
   * than `timeoutMs`.
   * @param {string} file
   * @param {string[]} args
   * @param {RunOptions} options
   * @returns {Promise<RunEnd>}
   */
  async run(file, args, { name, folder, env, signal, onLine, timeoutMs, outputLimit = defaultOutputLimit }) {
    if (signal?.aborted) throw new Cancelled();
    if (folder) this.#workspace.requireJobFolder(folder);
    const child = start(name, file, args, { cwd: folder ?? '/', env });
    const ended = endOf(child);
    if (child.pid === undefined) {
      const { error } = await ended;
      throw new JobFailure(describeStartError(name, error));
    }
    const group = this.#add(child.pid);

    /** @type {Error | null} */
    let failure = null;
    /** @type {Promise<void> | null} */
    let stopping = null;
    const stop = (/** @type {Error} */ reason) => {
      failure ??= reason;
      stopping ??= this.#stop(group);
    };
    const onAbort = () => stop(new Cancelled());
    signal?.addEventListener('abort', onAbort, { once: true });
    const timer = timeoutMs && setTimeout(() => stop(new JobFailure(`${name} took too long.`)), timeoutMs);

    const stdout = onLine
      ? splitLines(child.stdout, onLine)
      : collect(child.stdout, outputLimit, () => stop(new JobFailure(`${name} wrote more than can be read.`)));
    const stderr = collectLast(child.stderr, errorOutputLimit);

    const end = await ended;
    clearTimeout(timer);
    signal?.removeEventListener('abort', onAbort);
    await stopping;
    this.#remove(group);
    if (failure) throw failure;
    // What a program says about a folder that went away under it helps nobody.
    if (folder && end.code !== 0) this.#workspace.requireJobFolder(folder);
    return { code: end.code, signal: end.signal, stdout: stdout(), stderr: stderr() };
  }

  /** Ends every group that still runs; resolves when they are gone. */
  async stopAll() {
    await Promise.all([...this.#groups].map((group) => this.#stop(group)));
  }

  /** Kills every group without waiting. */
  killAllNow() {
    for (const group of this.#groups) signalGroup(group, 'SIGKILL');
  }

  /** @param {number} pid */
  #add(pid) {
    this.#groups.add(pid);
    this.#guard?.write(`add ${pid}\n`);
    return pid;
  }

  /** @param {number} group */
  #remove(group) {
    this.#groups.delete(group);
    this.#guard?.write(`drop ${group}\n`);
  }

  /** @param {number} group */
  async #stop(group) {
    signalGroup(group, 'SIGTERM');
    if (await groupEnds(group, termGraceMs)) return;
    signalGroup(group, 'SIGKILL');
    await groupEnds(group, killGraceMs);
  }
}

/**
 * Some failures, such as arguments longer than the system takes, are thrown at once instead of being reported later.
 * @param {string} name
 * @param {string} file
 * @param {string[]} args
 * @param {{ cwd: string, env?: NodeJS.ProcessEnv }} options
 */
function start(name, file, args, options) {
  try {
    return spawn(file, args, { ...options, detached: true, stdio: ['ignore', 'pipe', 'pipe'] });
  } catch (error) {
    throw new JobFailure(describeStartError(name, error));
  }
}

/**
 * Resolves when the child has ended and its output was read, with an error when it never started.
 * @param {ReturnType<typeof start>} child
 * @returns {Promise<{ code: number | null, signal: NodeJS.Signals | null, error?: NodeJS.ErrnoException }>}
 */
function endOf(child) {
  return new Promise((resolve) => {
    child.once('error', (error) => resolve({ code: null, signal: null, error }));
    child.once('exit', (code, signal) => {
      // What the tool has started ends with it, however the tool itself ended.
      if (child.pid !== undefined) signalGroup(child.pid, 'SIGKILL');
      const giveUp = setTimeout(() => {
        child.stdout.destroy();
        child.stderr.destroy();
      }, pipeGraceMs);
      child.once('close', () => {
        clearTimeout(giveUp);
        resolve({ code, signal });
      });
    });
  });
}

/**
 * @param {number} group
 * @param {NodeJS.Signals} name
 */
function signalGroup(group, name) {
  try {
    process.kill(-group, name);
  } catch {
    // It has ended.
  }
}

/**
 * @param {number} group
 * @param {number} limitMs
 */
async function groupEnds(group, limitMs) {
  const deadline = performance.now() + limitMs;
  while (groupLives(group)) {
    if (performance.now() > deadline) return false;
    await delay(groupPollMs);
  }
  return true;
}

/**
 * @param {string} name
 * @param {NodeJS.ErrnoException} [error]
 */
function describeStartError(name, error) {
  if (error?.code === 'ENOENT') return `${name} could not be found.`;
  return `${name} could not be started: ${error?.message ?? 'unknown reason'}.`;
}

/**
 * @param {import('node:stream').Readable} stream
 * @param {number} limit
 * @param {() => void} onTooMuch
 */
function collect(stream, limit, onTooMuch) {
  /** @type {Buffer[]} */
  const chunks = [];
  let size = 0;
  stream.on('data', (chunk) => {
    size += chunk.length;
    if (size <= limit) chunks.push(chunk);
    else onTooMuch();
  });
  return () => Buffer.concat(chunks).toString('utf8');
}

/**
 * @param {import('node:stream').Readable} stream
 * @param {number} limit
 */
function collectLast(stream, limit) {
  let kept = Buffer.alloc(0);
  stream.on('data', (chunk) => {
    kept = Buffer.concat([kept, chunk]).subarray(-limit);
  });
  return () => kept.toString('utf8');
}

/**
 * @param {import('node:stream').Readable} stream
 * @param {(line: string) => void} onLine
 */
function splitLines(stream, onLine) {
  let rest = '';
  stream.setEncoding('utf8');
  stream.on('data', (text) => {
    const lines = (rest + text).split(/[\r\n]+/);
    rest = (lines.pop() ?? '').slice(-lineLimit);
    lines.filter(Boolean).forEach(onLine);
  });
  stream.on('end', () => rest && onLine(rest));
  return () => '';
}
