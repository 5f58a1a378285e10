// The jobs of this run: which wait, which work, what became of them, and for how long that is remembered.

import { Cancelled, JobFailure, RequestError } from './errors.mjs';
import { newJobId } from './secrets.mjs';

const minute = 60_000;
const hour = 60 * minute;

// Analyses are short and wanted at once; downloads share the line and the disk.
const defaultLimits = {
  running: { analysis: 3, download: 2 },
  waiting: 50,
  finished: 200,
  results: 16,
  finishedMs: 24 * hour,
  // The save panel may stay open for a long while before a result is fetched.
  protectedMs: hour,
  fetchedMs: 10 * minute,
};

const runningStatuses = new Set(['queued', 'probing', 'downloading', 'processing']);

/** One job. Its fields are written by the store and, through `report` and `answer`, by its own work. */
export class Job {
  #log;

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
    this.answer = {};
    this.error = null;
    /** { file, filename } once there is something to fetch. */
    this.result = null;
    this.controller = new AbortController();
    this.folder = null;
    this.finishedAt = null;
    this.fetchedAt = null;
    this.ended = new Promise((resolve) => {
      this.markEnded = resolve;
    });
    this.#log = log;
    this.#log(`job ${this.shortId} ${this.name}: queued`);
  }

  get isRunning() {
    return runningStatuses.has(this.status);
  }

  /** Progress never goes back, and 100 is kept for the end. */
  report({ status, stage, progress }) {
    if (status && status !== this.status) {
      this.status = status;
      this.#log(`job ${this.shortId} ${this.name}: ${status}`);
    }
    if (stage) this.stage = stage;
    if (Number.isFinite(progress)) {
      const rounded = Math.floor(progress * 10) / 10;
      this.progress = Math.max(this.progress, Math.min(99, rounded));
    }
  }

  finish(status, stage, message, now) {
    this.status = status;
    this.stage = stage;
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
      ...(result && status === 'completed'
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
  #now;
  #jobs = new Map();
  #waiting = [];
  #running = { analysis: 0, download: 0 };
  #closed = false;

  constructor({ workspace, log, limits = {}, now = Date.now }) {
    this.#workspace = workspace;
    this.#log = log;
    this.#limits = { ...defaultLimits, ...limits };
    this.#now = now;
  }

  /**
   * Queues `work`, an async function of (job, folder, signal) that reports to the job and resolves when it is
   * complete. `kind` is "analysis" or "download". Throws RequestError when too many jobs wait already.
   */
  add(kind, name, work) {
    if (this.#closed) throw new RequestError(503, 'The local processor is stopping.');
    if (this.#waiting.length >= this.#limits.waiting) throw new RequestError(429, 'Too many jobs are waiting already.');
    const job = new Job(kind, name, work, this.#log);
    this.#jobs.set(job.id, job);
    this.#waiting.push(job);
    this.#startWaiting();
    this.#forgetOld();
    return job;
  }

  /** The job, or undefined when it never was or is no longer remembered. */
  find(id) {
    this.#forgetOld();
    return this.#jobs.get(id);
  }

  /** Ends a job that has not ended; resolves when nothing of it is left running or on disk. */
  async cancel(job) {
    if (!job.isRunning) return;
    const place = this.#waiting.indexOf(job);
    if (place >= 0) {
      this.#waiting.splice(place, 1);
      this.#end(job, 'cancelled', 'Cancelled.', new Cancelled().message);
      return;
    }
    job.controller.abort();
    await job.ended;
  }

  /** The result was delivered in full, so it need not be kept for long. */
  markFetched(job) {
    job.fetchedAt = this.#now();
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

  async #run(job) {
    let outcome = ['completed', 'Finished.', null];
    try {
      job.folder = await this.#workspace.newJobFolder();
      await job.work(job, job.folder, job.controller.signal);
      if (job.controller.signal.aborted) throw new Cancelled();
    } catch (error) {
      outcome = this.#judge(job, error);
    }
    if (outcome[0] !== 'completed' || !job.result) await this.#removeFiles(job);
    this.#running[job.kind] -= 1;
    this.#end(job, ...outcome);
    this.#startWaiting();
  }

  #judge(job, error) {
    if (error instanceof Cancelled || job.controller.signal.aborted) {
      return ['cancelled', 'Cancelled.', new Cancelled().message];
    }
    if (error instanceof JobFailure) return ['failed', 'Failed.', error.message];
    if (error.code === 'ENOSPC') return ['failed', 'Failed.', 'There is no space left on the disk.'];
    this.#log(`internal error in job ${job.shortId}: ${error.stack ?? error}`);
    return ['failed', 'Failed.', 'The local processor met an unexpected error. Its log has the details.'];
  }

  #end(job, status, stage, message) {
    if (status !== 'completed') job.result = null;
    job.finish(status, stage, message, this.#now());
    job.markEnded();
  }

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

  // A result that nobody has fetched yet is given up only when it is old; one that was fetched soon, since the
  // helper may only have to repeat a fetch whose file could not be moved.
  #forgetOld() {
    const now = this.#now();
    const finished = [...this.#jobs.values()].filter((job) => job.finishedAt !== null);
    const { finishedMs, fetchedMs, protectedMs } = this.#limits;
    const isOver = (job) =>
      now - job.finishedAt > finishedMs || (job.fetchedAt !== null && now - job.fetchedAt > fetchedMs);
    finished.filter(isOver).forEach((job) => this.#forget(job));

    const isProtected = (job) => job.result && job.fetchedAt === null && now - job.finishedAt < protectedMs;
    this.#trim(finished.filter((job) => job.result), this.#limits.results, isProtected);
    this.#trim(finished, this.#limits.finished, isProtected);
  }

  #trim(jobs, limit, isProtected) {
    const kept = jobs.filter((job) => this.#jobs.has(job.id));
    const spare = kept.filter((job) => !isProtected(job)).sort((a, b) => a.finishedAt - b.finishedAt);
    spare.slice(0, Math.max(0, kept.length - limit)).forEach((job) => this.#forget(job));
  }

  #forget(job) {
    this.#jobs.delete(job.id);
    this.#removeFiles(job);
  }
}
