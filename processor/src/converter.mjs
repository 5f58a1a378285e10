// Everything that ffmpeg and ffprobe do for a job: measure what there is, and make the result of it.

import { readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { hasCues, unroll } from './captions.mjs';
import { JobFailure } from './errors.mjs';
import {
  convertArguments,
  convertSubtitleArguments,
  measureArguments,
  parseConvertProgress,
  parseMeasurement,
} from './ffmpeg.mjs';
import { readableError } from './reasons.mjs';

/** @typedef {import('./downloader.mjs').Context} Context */
/** @typedef {import('./ffmpeg.mjs').Measurement} Measurement */

const measureLimitMs = 10_000;
const localMeasureLimitMs = 60_000;
// Where in a job's 0 to 100 the conversion lies.
const share = { start: 92, end: 99 };

export class Converter {
  #programs;

  /** @param {{ programs: import('./programs.mjs').Programs }} options */
  constructor({ programs }) {
    this.#programs = programs;
  }

  /**
   * What a stream of the site is; null when that cannot be told, which only means that less is known.
   * @param {import('./medium.mjs').Format} format
   * @param {Context} context
   */
  async measureRemote({ url, headers }, context) {
    try {
      const options = { timeoutMs: measureLimitMs };
      const args = measureArguments(url, headers);
      const { code, stdout } = await this.#programs.runOnline('ffprobe', args, context, options);
      return code === 0 ? parseMeasurement(stdout) : null;
    } catch (error) {
      if (error instanceof JobFailure) return null;
      throw error;
    }
  }

  /**
   * What a file of the job is; null when it is nothing that can be played.
   * @param {string} file
   * @param {Context} context
   */
  async measure(file, context) {
    const options = { timeoutMs: localMeasureLimitMs };
    const { code, stdout } = await this.#programs.run('ffprobe', measureArguments(file), context, options);
    return code === 0 ? parseMeasurement(stdout) : null;
  }

  /**
   * Writes the result of the inputs' streams; resolves to its file.
   * @param {{ inputs: string[], maps: string[], stage: string, title: string, duration?: number,
   *   plan: { ext: string, codecs: string[] } }} order
   * @param {Context} context
   */
  async convert({ inputs, maps, stage, title, duration = 0, plan: { ext, codecs } }, context) {
    const { report, folder } = context;
    report({ status: 'processing', stage, progress: share.start });
    const output = path.join(folder, `result.${ext}`);
    const onLine = (/** @type {string} */ line) => {
      const seconds = parseConvertProgress(line);
      if (seconds === null || duration === 0) return;
      report({ progress: share.start + (share.end - share.start) * Math.min(1, seconds / duration) });
    };
    const args = convertArguments({ inputs, maps, codecs, title, output });
    const end = await this.#programs.run('ffmpeg', args, context, { onLine });
    if (end.code !== 0) throw new JobFailure(readableError(end, { name: 'ffmpeg' }));
    return output;
  }

  /**
   * Makes a subtitle file one of the wanted format; resolves to where that lies.
   * @param {{ file: string, format: string, automatic: boolean }} order
   * @param {Context} context
   */
  async convertSubtitle({ file, format, automatic }, context) {
    const from = path.extname(file).slice(1);
    const output = from === format ? file : path.join(context.folder, `result.${format}`);
    if (output !== file) {
      context.report({ status: 'processing', stage: 'Preparing the subtitle…', progress: share.start });
      const args = convertSubtitleArguments({ input: file, from, to: format, output });
      const end = await this.#programs.run('ffmpeg', args, context);
      if (end.code !== 0) throw new JobFailure(readableError(end, { name: 'ffmpeg' }));
    }
    const text = await readFile(output, 'utf8');
    if (!hasCues(text)) throw new JobFailure('The subtitle track that the site delivered says nothing.');
    if (!automatic || format !== 'srt') return output;
    const unrolled = path.join(context.folder, 'captions.srt');
    await writeFile(unrolled, unroll(text), { flag: 'wx' });
    return unrolled;
  }
}
