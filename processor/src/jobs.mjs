// The jobs of this run: which wait, which work, what became of them, and for how long that is remembered.

import { constants } from 'node:fs';
import { open } from 'node:fs/promises';
import path from 'node:path';

import { Cancelled, JobFailure, LostFolder, RequestError } from './errors.mjs';
import { newJobId } from './secrets.mjs';

const minute = 60_000;
const hour = 60 * minute;

// Analyses are short and wanted at once; downloads share the line and the disk. Each kind waits for its own.
const defaultLimits = {
  running: { analysis: 3, download: 2 },
  waiting: { analysis: 50, download: 50 },
  finished: 200,
  results: 16,
  finishedMs: 24 * hour,
  // The save panel may stay open for a long while before a result is fetched.
  protectedMs: hour,
  fetchedMs: hour,
};

// What is over goes at the next look, also while nobody asks for anything.
const lookEveryMs = minute;
// What a call of the file system says when the folder it was meant for is not there any more, or another one is.
const lostFolderCodes = ['ENOENT', 'ENOTDIR', 'EEXIST', 'ELOOP', 'EACCES'];

const cancelled = { status: 'cancelled', stage: 'Cancelled.', message: new Cancelled().message };

const runningStatuses = new Set(['queued', 'probing', 'downloading', 'processing']);

/**
 * What the work of a job gets.
 * @typedef {object} JobContext
 * @property {(news: News) => void} report
 * @property {string} folder private to the job; removed with it
 * @property {AbortSignal} signal aborted when the job is cancelled
 *
 * @typedef {object} News any of these
 * @property {string} [status]
 * @property {string} [stage]
 * @property {number} [progress] from 0 to 100
 *
 * What came of it.
 * @typedef {object} Outcome
 * @property {object} [answer] fields for the job's answer
 * @property {Result} [result] a file in the job's folder
 *
 * @typedef {object} Result
 * @property {string} file absolute path
 * @property {string} filename the name that is proposed for it
 *
 * @typedef {(context: JobContext) => Promise<Outcome>} Work
 * @typedef {'analysis' | 'download'} Kind
 * @typedef {{ status: string, stage: string, message?: string } & Outcome} End
 * @typedef {(line: string) => void} Log
 * @typedef {import('./workspace.mjs').Workspace} Workspace
 * @typedef {{ unref(): unknown }} Timer
 * @typedef {{ now: () => number, setTimeout: (callback: () => void, ms: number) => Timer }} Clock
 */

/** One job. The store writes its fields; its work reports how far it is and returns what came of it. */
export class Job {
  #log;

  /**
   * @param {Kind} kind
   * @param {string} name for the log
   * @param {Work} work
   * @param {Log} log
   */
  constructor(kind, name, work, log) {
    this.id = newJobId();
    /** How the log calls the job: too short to be used as an identifier. */
    this.shortId = this.id.slice(0, 6);
    this.kind = kind;
    this.name = name;
    this.work = work;
    this.status = 'queued';
    this.stage = 'Waiting for its turn…';
    this.progress = 0;
    /** @type {object} */
    this.answer = {};
    /** @type {{ message: string } | null} */
    this.error = null;
    /** @type {Result | null} once there is something to fetch */
    this.result = null;
    this.controller = new AbortController();
    /** @type {string | null} */
    this.folder = null;
    /** When it ended and when its result was fetched, both in a future that never comes until then. */
    this.finishedAt = Infinity;
    this.fetchedAt = Infinity;
    this.markEnded = () => {};
    /** @type {Promise<void>} */
    this.ended = new Promise((resolve) => {
      this.markEnded = resolve;
    });
    this.#log = log;
    this.#log(`job ${this.shortId} ${this.name}: queued`);
  }

  get isRunning() {
    return runningStatuses.has(this.status);
  }

  /**
   * Progress never goes back, and 100 is kept for the end.
   * @param {News} news
   */
  report({ status, stage, progress }) {
    if (status && status !== this.status) {
      this.status = status;
      this.#log(`job ${this.shortId} ${this.name}: ${status}`);
    }
    if (stage) this.stage = stage;
    if (progress !== undefined && Number.isFinite(progress)) {
      const rounded = Math.floor(progress * 10) / 10;
      this.progress = Math.max(this.progress, Math.min(99, rounded));
    }
  }

  /**
   * @param {End} end
   * @param {number} now
   */
  finish({ status, stage, message, answer = {}, result }, now) {
    this.status = status;
    this.stage = stage;
    this.answer = answer;
    this.result = result ?? null;
    this.error = message ? { message } : null;
    if (status === 'completed') this.progress = 100;
    this.finishedAt = now;
    this.#log(`job ${this.shortId} ${this.name}: ${status}${message ? `: ${message}` : ''}`);
  }

  toJSON() {
    const { id, status, progress, stage, answer, result, error } = this;
    return {
      jobId: id,
      status,
      progress,
      stage,
      ...answer,
      ...(result
        ? { result: { kind: 'file', downloadUrl: `/jobs/${id}/result`, filename: result.filename } }
        : {}),
      ...(error ? { error } : {}),
    };
  }
}

export class JobStore {
  #workspace;
  #log;
  #limits;
  #clock;
  /** @type {Map<string, Job>} */
  #jobs = new Map();
  /** @type {Job[]} */
  #waiting = [];
  #running = { analysis: 0, download: 0 };
  #closed = false;
  /** @type {Timer | null} */
  #lookTimer = null;

  /**
   * @param {object} parts
   * @param {Pick<Workspace, 'newJobFolder' | 'removeJobFolder' | 'requireJobFolder'>} parts.workspace
   * @param {Log} parts.log
   * @param {Partial<typeof defaultLimits>} [parts.limits]
   * @param {Clock} [parts.clock]
   */
  constructor({ workspace, log, limits = {}, clock = { now: Date.now, setTimeout } }) {
    this.#workspace = workspace;
    this.#log = log;
    this.#limits = { ...defaultLimits, ...limits };
    this.#clock = clock;
  }

  /**
   * Queues work. Throws RequestError when too many jobs of its kind wait already.
   * @param {Kind} kind
   * @param {string} name for the log
   * @param {Work} work
   */
  add(kind, name, work) {
    if (this.#closed) throw new RequestError(503, 'The local processor is stopping.');
    const waiting = this.#waiting.filter((job) => job.kind === kind).length;
    if (waiting >= this.#limits.waiting[kind]) throw new RequestError(429, 'Too many jobs are waiting already.');
    const job = new Job(kind, name, work, this.#log);
    this.#jobs.set(job.id, job);
    this.#waiting.push(job);
    this.#startWaiting();
    this.#forgetOld();
    return job;
  }

  /**
   * The job, or undefined when it never was or is no longer remembered.
   * @param {string} id
   */
  find(id) {
    this.#forgetOld();
    return this.#jobs.get(id);
  }

  /**
   * Ends a job that has not ended; resolves when nothing of it is left running or on disk.
   * @param {Job} job
   */
  async cancel(job) {
    if (!job.isRunning) return;
    const place = this.#waiting.indexOf(job);
    if (place >= 0) {
      this.#waiting.splice(place, 1);
      this.#end(job, cancelled);
      return;
    }
    job.controller.abort();
    await job.ended;
  }

  /**
   * Opens the file of a result for reading; rejects when it is no longer there.
   * @param {Result} result
   */
  async openResult({ file }) {
    this.#workspace.requireJobFolder(path.dirname(file));
    return open(file, constants.O_RDONLY | constants.O_NOFOLLOW);
  }

  /**
   * The result was delivered in full, so it need not be kept for long.
   * @param {Job} job
   */
  markFetched(job) {
    job.fetchedAt = this.#clock.now();
    this.#log(`job ${job.shortId} ${job.name}: fetched`);
  }

  async shutDown() {
    this.#closed = true;
    await Promise.all([...this.#jobs.values()].map((job) => this.cancel(job)));
  }

  #startWaiting() {
    for (const job of [...this.#waiting]) {
      if (this.#running[job.kind] >= this.#limits.running[job.kind]) continue;
      this.#waiting.splice(this.#waiting.indexOf(job), 1);
      this.#running[job.kind] += 1;
      this.#run(job);
    }
  }

  /** @param {Job} job */
  async #run(job) {
    const end = await this.#endOf(job);
    if (!end.result) await this.#removeFiles(job);
    this.#running[job.kind] -= 1;
    this.#end(job, end);
    this.#startWaiting();
  }

  /**
   * Does the work of a job; resolves to how it ended.
   * @param {Job} job
   * @returns {Promise<End>}
   */
  async #endOf(job) {
    const { signal } = job.controller;
    try {
      job.folder = await this.#workspace.newJobFolder();
      const outcome = await job.work({ report: (news) => job.report(news), folder: job.folder, signal });
      return signal.aborted ? cancelled : { status: 'completed', stage: 'Finished.', ...outcome };
    } catch (error) {
      if (signal.aborted || error instanceof Cancelled) return cancelled;
      return { status: 'failed', stage: 'Failed.', message: this.#describe(job, error) };
    }
  }

  /**
   * @param {Job} job
   * @param {NodeJS.ErrnoException} error
   */
  #describe(job, error) {
    if (error instanceof JobFailure) return error.message;
    if (error.code === 'ENOSPC') return 'There is no space left on the disk.';
    if (lostFolderCodes.includes(error.code ?? '')) {
      this.#log(`warning: job ${job.shortId} has lost its folder: ${error.message}`);
      return new LostFolder().message;
    }
    this.#log(`internal error in job ${job.shortId}: ${error.stack ?? error}`);
    return 'The local processor met an unexpected error. Its log has the details.';
  }

  /**
   * @param {Job} job
   * @param {End} end
   */
  #end(job, end) {
    job.finish(end, this.#clock.now());
    job.markEnded();
    this.#lookLater();
  }

  /** @param {Job} job */
  async #removeFiles(job) {
    const { folder } = job;
    job.folder = null;
    if (!folder) return;
    try {
      await this.#workspace.removeJobFolder(folder);
    } catch (error) {
      this.#log(`warning: the files of job ${job.shortId} cannot be removed: ${error.message}`);
    }
  }

  #lookLater() {
    if (this.#lookTimer) return;
    this.#lookTimer = this.#clock.setTimeout(() => {
      this.#lookTimer = null;
      this.#forgetOld();
      if (this.#finished().length > 0) this.#lookLater();
    }, lookEveryMs);
    this.#lookTimer.unref();
  }

  #finished() {
    return [...this.#jobs.values()].filter((job) => !job.isRunning);
  }

  // A result that nobody has fetched yet is given up only when it is old; one that was fetched soon, since the
  // helper may only have to repeat a fetch whose file could not be moved.
  #forgetOld() {
    const now = this.#clock.now();
    const { finishedMs, fetchedMs } = this.#limits;
    this.#finished()
      .filter((job) => now - job.finishedAt > finishedMs || now - job.fetchedAt > fetchedMs)
      .forEach((job) => this.#forget(job));
    this.#trim(this.#finished().filter((job) => job.result), this.#limits.results);
    this.#trim(this.#finished(), this.#limits.finished);
  }

  /**
   * Forgets the oldest of these jobs that are beyond a number, except for results that could not have been fetched yet.
   * @param {Job[]} jobs
   * @param {number} limit
   */
  #trim(jobs, limit) {
    const protectedSince = this.#clock.now() - this.#limits.protectedMs;
    const isProtected = (/** @type {Job} */ { result, fetchedAt, finishedAt }) =>
      result && fetchedAt === Infinity && finishedAt > protectedSince;
    const spare = jobs.filter((job) => !isProtected(job)).sort((a, b) => a.finishedAt - b.finishedAt);
    spare.slice(0, Math.max(0, jobs.length - limit)).forEach((job) => this.#forget(job));
  }

  /** @param {Job} job */
  #forget(job) {
    this.#jobs.delete(job.id);
    this.#removeFiles(job);
  }
}
