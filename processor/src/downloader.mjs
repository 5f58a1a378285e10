// Everything that yt-dlp does for a job: reads its link, and fetches streams and subtitles of what was read.

import { writeFile } from 'node:fs/promises';
import path from 'node:path';

import { JobFailure } from './errors.mjs';
import { readMedium } from './medium.mjs';
import { readableError } from './reasons.mjs';
import { StreamProgress } from './stream_progress.mjs';
import { inspectArguments, parseFile, parseProgress, streamArguments, subtitleArguments } from './ytdlp.mjs';

/** @typedef {import('./medium.mjs').Medium} Medium */
/** @typedef {import('./medium.mjs').Format} Format */

/**
 * The circumstances of a job's work.
 * @typedef {object} Context
 * @property {string} folder
 * @property {AbortSignal} signal
 * @property {(state: { status?: string, stage?: string, progress?: number }) => void} report
 * @property {string} link
 * @property {string | null} browserLogin
 */

const inspectLimitMs = 180_000;
// Where in a job's 0 to 100 the download lies.
const share = { start: 2, end: 92 };

/** Nothing at all of what an analysis has promised could be fetched; a new analysis may promise something else. */
export class NothingDelivered extends JobFailure {}

export class Downloader {
  #programs;
  #manner;

  /**
   * @param {{ programs: import('./programs.mjs').Programs, anyCertificate: boolean,
   *   version: () => Promise<string | null> }} options
   */
  constructor({ programs, anyCertificate, version }) {
    this.#programs = programs;
    this.#manner = async (/** @type {Context} */ { browserLogin }) => {
      return { version: await version(), anyCertificate, browserLogin };
    };
  }

  /**
   * What yt-dlp knows about the link.
   * @param {Context} context
   * @returns {Promise<Medium>}
   */
  async inspect(context) {
    const args = inspectArguments(context.link, await this.#manner(context));
    // Some sites answer programs without encryption only; where their media lie is judged on its own.
    const end = await this.#programs.runOnline('yt-dlp', args, context, {
      plainHttp: true,
      timeoutMs: inspectLimitMs,
    });
    if (end.code !== 0) throw new JobFailure(describe(end, context));
    return readMedium(end.stdout);
  }

  /**
   * Downloads the streams one after the other; resolves to their files in the same order.
   * @param {{ id: string, format: Format }[]} streams
   * @param {Medium} medium
   * @param {Context} context
   */
  async fetchStreams(streams, medium, context) {
    const formats = streams.map(({ id, format }) => ({ ...format.source, format_id: id }));
    const infoFile = await writeInfo(context.folder, { ...medium.source, formats });
    const formatIds = streams.map(({ id }) => id);
    const args = streamArguments({ infoFile, formatIds }, await this.#manner(context));
    const progress = new StreamProgress(streams, medium.duration);
    return this.#fetch({ args, ids: formatIds, progress, idOf: (id) => id }, context);
  }

  /**
   * Downloads a subtitle file; resolves to where it lies.
   * @param {import('./medium.mjs').SubtitleFile} file
   * @param {Medium} medium
   * @param {Context} context
   */
  async fetchSubtitle(file, medium, context) {
    // The track gets a name of ours: the site's could not be told from a pattern or a path.
    const infoFile = await writeInfo(context.folder, { ...medium.source, subtitles: { track: [file.source] } });
    const args = subtitleArguments({ infoFile, ext: file.ext }, await this.#manner(context));
    const progress = new StreamProgress([{ id: 'subtitle' }]);
    // yt-dlp names the format it would have downloaded, not the track.
    const [fetched] = await this.#fetch({ args, ids: ['track'], progress, idOf: () => 'subtitle' }, context);
    return fetched;
  }

  /**
   * Resolves to the absolute paths of the files that yt-dlp calls by `ids`.
   * @param {{ args: string[], ids: string[], progress: StreamProgress, idOf: (id: string) => string }} order
   * @param {Context} context
   */
  async #fetch({ args, ids, progress, idOf }, context) {
    const { report, folder } = context;
    /** @type {Map<string, string>} */
    const files = new Map();
    let arrived = false;
    const onLine = (/** @type {string} */ line) => {
      const delivered = parseFile(line);
      if (delivered) files.set(delivered.id, path.resolve(folder, delivered.file));
      const step = parseProgress(line);
      if (!step) return;
      arrived ||= (step.done ?? 0) > 0;
      const id = idOf(step.id);
      progress.update({ ...step, id });
      const stage = progress.allFinished ? 'Preparing the download…' : `Downloading ${id}…`;
      report({ stage, progress: share.start + (share.end - share.start) * progress.fraction });
    };
    report({ status: 'downloading', stage: `Downloading ${idOf(ids[0])}…`, progress: share.start });
    const end = await this.#programs.runOnline('yt-dlp', args, context, { onLine });
    if (end.refusal && end.code !== 0) throw new JobFailure(end.refusal);
    const missing = ids.find((id) => !files.has(id));
    if (end.code === 0 && !missing) return ids.map((id) => /** @type {string} */ (files.get(id)));
    const reason = end.code === 0 ? `yt-dlp did not deliver the ${missing}.` : describe(end, context);
    throw arrived ? new JobFailure(reason) : new NothingDelivered(reason);
  }
}

/** @param {import('./programs.mjs').OnlineEnd} end @param {Context} context */
function describe(end, { browserLogin }) {
  return end.refusal ?? readableError(end, { loggedIn: browserLogin !== null });
}

/** @param {string} folder @param {object} info */
async function writeInfo(folder, info) {
  const name = 'info.json';
  await writeFile(path.join(folder, name), JSON.stringify(info), { mode: 0o600, flag: 'wx' });
  return name;
}
