// Runs yt-dlp, ffmpeg and ffprobe. Every tool leads a process group of its own, so that whatever it starts ends
// with it. A guard, a small shell script that notices the death of this process, ends the groups that were left
// when the processor itself was killed.

import { spawn } from 'node:child_process';
import { setTimeout as delay } from 'node:timers/promises';

import { Cancelled, JobFailure } from './errors.mjs';

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
folder=$1
groups=' '
while read -r verb group; do
  case $verb in
    add) groups="$groups$group " ;;
    drop) groups="\${groups%% $group *} \${groups#* $group }" ;;
  esac
done
for group in $groups; do kill -s KILL -- "-$group" 2>/dev/null; done
rm -rf -- "$folder"
`;

export class Tools {
  #groups = new Set();
  #guard = null;

  /** Starts the guard, which also removes `folder` when this process dies without having done so. */
  startGuard(folder) {
    // stdin is the lifeline: the kernel closes it whatever ends this process.
    const guard = spawn('/bin/sh', ['-c', guardScript, 'guard', folder], {
      cwd: '/',
      detached: true,
      stdio: ['pipe', 'ignore', 'ignore'],
    });
    guard.on('error', () => {});
    guard.stdin.on('error', () => {});
    guard.unref();
    this.#guard = guard;
  }

  /**
   * Runs one program to its end.
   *
   * `onLine` receives each line of standard output as it comes; without it the output is collected as text, up to
   * `outputLimit` bytes. Resolves to { code, signal, stdout, stderr }, where stderr is the last part of it.
   * Rejects with Cancelled once the whole group is gone after `signal` was aborted, and with JobFailure when the
   * program cannot be started, writes too much or needs longer than `timeoutMs`.
   */
  async run(file, args, { name, cwd, env, signal, onLine, timeoutMs, outputLimit = defaultOutputLimit }) {
    if (signal?.aborted) throw new Cancelled();
    const child = start(name, file, args, { cwd, env, detached: true, stdio: ['ignore', 'pipe', 'pipe'] });
    const ended = endOf(child);
    if (child.pid === undefined) {
      const { error } = await ended;
      throw new JobFailure(describeStartError(name, error));
    }
    const group = this.#add(child.pid);

    let failure = null;
    let stopping = null;
    const stop = (reason) => {
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

  #add(pid) {
    this.#groups.add(pid);
    this.#guard?.stdin.write(`add ${pid}\n`);
    return pid;
  }

  #remove(group) {
    this.#groups.delete(group);
    this.#guard?.stdin.write(`drop ${group}\n`);
  }

  async #stop(group) {
    signalGroup(group, 'SIGTERM');
    if (await groupEnds(group, termGraceMs)) return;
    signalGroup(group, 'SIGKILL');
    await groupEnds(group, killGraceMs);
  }
}

// Some failures, such as arguments longer than the system takes, are thrown at once instead of being reported later.
function start(name, file, args, options) {
  try {
    return spawn(file, args, options);
  } catch (error) {
    throw new JobFailure(describeStartError(name, error));
  }
}

// Resolves to { code, signal } when the child has ended and its output was read, or to { error }.
function endOf(child) {
  return new Promise((resolve) => {
    child.once('error', (error) => resolve({ error }));
    child.once('exit', (code, signal) => {
      // What the tool has started ends with it, however the tool itself ended.
      signalGroup(child.pid, 'SIGKILL');
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

function signalGroup(group, name) {
  try {
    process.kill(-group, name);
    return true;
  } catch {
    return false;
  }
}

async function groupEnds(group, limitMs) {
  const deadline = performance.now() + limitMs;
  while (signalGroup(group, 0)) {
    if (performance.now() > deadline) return false;
    await delay(groupPollMs);
  }
  return true;
}

function describeStartError(name, error) {
  if (error?.code === 'ENOENT') return `${name} could not be found.`;
  return `${name} could not be started: ${error?.message ?? 'unknown reason'}.`;
}

function collect(stream, limit, onTooMuch) {
  const chunks = [];
  let size = 0;
  stream.on('data', (chunk) => {
    size += chunk.length;
    if (size <= limit) chunks.push(chunk);
    else onTooMuch();
  });
  return () => Buffer.concat(chunks).toString('utf8');
}

function collectLast(stream, limit) {
  let kept = Buffer.alloc(0);
  stream.on('data', (chunk) => {
    kept = Buffer.concat([kept, chunk]).subarray(-limit);
  });
  return () => kept.toString('utf8');
}

function splitLines(stream, onLine) {
  let rest = '';
  stream.setEncoding('utf8');
  stream.on('data', (text) => {
    const lines = (rest + text).split(/[\r\n]+/);
    rest = lines.pop().slice(-lineLimit);
    lines.filter(Boolean).forEach(onLine);
  });
  stream.on('end', () => rest && onLine(rest));
  return () => '';
}
