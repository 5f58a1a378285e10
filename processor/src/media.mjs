// The work of the jobs: reads what a link leads to, and saves one output of it.

import { readdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { Converter } from './converter.mjs';
import { Downloader, NothingDelivered } from './downloader.mjs';
import { planAudio, planVideo, requireWhole } from './ffmpeg.mjs';
import { chooseForAudio, chooseForVideo, hasPicture, qualitiesOf } from './formats.mjs';
import { Gate } from './gate.mjs';
import { defaultLimits, requireRoom, withinLimits } from './limits.mjs';
import { proposeFilename } from './names.mjs';
import { Programs } from './programs.mjs';
import { describeSubtitles, findTrack } from './subtitles.mjs';

/** @typedef {import('./downloader.mjs').Context} Context */
/** @typedef {import('./medium.mjs').Medium} Medium */
/** @typedef {{ link: string, browserLogin: string | null }} MediaOrder */
/** @typedef {MediaOrder & { mode: 'video' | 'audio' | 'subtitle', quality?: string, trackId?: string,
 *   subtitleFormat?: string }} JobOrder */
/** @typedef {Pick<Context, 'folder' | 'signal' | 'report'>} JobContext */
/** @typedef {{ file: string, suffixes: string[] }} Saved */

const measuredFormatsLimit = 3;
const measuringProgress = 80;
// Sites give out addresses of streams for some hours at best, and change what they offer at any time.
const youngMs = 5 * 60_000;
const rememberedLimit = 8;

export class Media {
  #downloader;
  #converter;
  #limits;
  #now;
  /** @type {Map<string, { medium: Medium, at: number }>} */
  #remembered = new Map();

  /**
   * @param {object} options
   * @param {{ ytDlp: string, ffmpeg: string, ffprobe: string }} options.config
   * @param {import('./tools.mjs').Tools} options.tools
   * @param {import('./settings.mjs').Settings} [options.settings]
   * @param {() => Promise<string | null>} [options.ytDlpVersion]
   * @param {import('./limits.mjs').Limits} [options.limits]
   * @param {() => number} [options.now]
   */
  constructor({ config, tools, settings, ytDlpVersion = async () => null, limits = defaultLimits, now = Date.now }) {
    const { anyCertificate = false, ...network } = settings ?? {};
    const programs = new Programs({ config, tools, gate: new Gate({ network, env: process.env }) });
    this.#downloader = new Downloader({ programs, anyCertificate, version: ytDlpVersion });
    this.#converter = new Converter({ programs });
    this.#limits = limits;
    this.#now = now;
  }

  /**
   * Work of an analysis job: resolves to its answer and to what it offers.
   * @param {MediaOrder} order
   * @param {JobContext} jobContext
   */
  async analyse(order, jobContext) {
    const context = { ...jobContext, ...order };
    const medium = await this.#inspect(context);
    context.report({ stage: 'Measuring the media…', progress: measuringProgress });
    medium.duration ??= await this.#measureDuration(medium, context);
    this.#remember(order, medium);
    const qualities = qualitiesOf(medium);
    const { tracks, originalLanguage, recommendedSubtitleId } = describeSubtitles(medium);
    const answer = {
      ...(medium.title ? { title: medium.title } : {}),
      duration: medium.duration,
      formats: qualities.map((quality) => ({ quality })),
      subtitles: tracks,
      originalLanguage,
      recommendedSubtitleId,
    };
    return { answer, qualities, trackIds: tracks.map((track) => track.id) };
  }

  /**
   * Work of a download job: leaves one file in the job's folder and resolves to it.
   * @param {JobOrder} order
   * @param {JobContext} jobContext
   */
  async download(order, { folder, signal, report }) {
    return withinLimits({ folder, signal, limits: this.#limits }, async (limitedSignal) => {
      const { link, browserLogin } = order;
      const context = { folder, signal: limitedSignal, report, link, browserLogin };
      const { medium, saved } = await this.#saveFromYoungest(order, context);
      await removeAllBut(folder, saved.file);
      return { result: { file: saved.file, filename: proposeFilename(medium.title, ...saved.suffixes) } };
    });
  }

  // What the analysis has just read need not be read again. When nothing comes of it, the site may have changed its
  // mind since.
  /** @param {JobOrder} order @param {Context} context */
  async #saveFromYoungest(order, context) {
    const known = this.#recall(order);
    if (known) {
      try {
        return { medium: known, saved: await this.#save(order, known, context) };
      } catch (error) {
        if (!(error instanceof NothingDelivered)) throw error;
        await removeAllBut(context.folder, null);
      }
    }
    const medium = await this.#inspect(context);
    return { medium, saved: await this.#save(order, medium, context) };
  }

  /** @param {JobOrder} order @param {Medium} medium @param {Context} context */
  #save(order, medium, context) {
    if (order.mode === 'video') return this.#saveVideo(order, medium, context);
    return order.mode === 'audio' ? this.#saveAudio(medium, context) : this.#saveSubtitle(order, medium, context);
  }

  /** @param {JobOrder} order @param {Medium} medium @param {Context} context @returns {Promise<Saved>} */
  async #saveVideo({ quality = '' }, medium, context) {
    const chosen = chooseForVideo(medium, quality);
    if (!chosen) throw new NothingDelivered(`This link does not offer ${quality}.`);
    const streams = [{ id: 'video', format: chosen.video }];
    if (chosen.audio) streams.push({ id: 'audio', format: chosen.audio });
    const files = await this.#fetchStreams(streams, medium, context);
    const measured = await Promise.all(files.map((file) => this.#converter.measure(file, context)));
    requireWhole(measured[0], { picture: true, sound: false });
    const soundIndex = measured.findLastIndex((measurement) => measurement?.audio);
    const plan = planVideo(measured[0]?.video, measured[soundIndex]?.audio);
    const stage = files.length > 1 ? 'Merging video and audio…' : 'Preparing the video…';
    const maps = ['0:v:0', ...(soundIndex >= 0 ? [`${soundIndex}:a:0`] : [])];
    const { title } = medium;
    const convert = { inputs: files, maps, stage, title, duration: measured[0]?.duration, plan };
    const file = await this.#converter.convert(convert, context);
    const wanted = { picture: true, sound: soundIndex >= 0 || chosen.audio !== null, duration: medium.duration };
    requireWhole(await this.#converter.measure(file, context), wanted);
    return { file, suffixes: [plan.ext] };
  }

  /** @param {Medium} medium @param {Context} context @returns {Promise<Saved>} */
  async #saveAudio(medium, context) {
    const format = chooseForAudio(medium);
    if (!format) throw new NothingDelivered('This link has no sound to save.');
    const [source] = await this.#fetchStreams([{ id: 'audio', format }], medium, context);
    const measured = await this.#converter.measure(source, context);
    requireWhole(measured, { picture: false, sound: true });
    const plan = planAudio(measured?.audio);
    const { title } = medium;
    const stage = 'Preparing the audio…';
    const convert = { inputs: [source], maps: ['0:a:0'], stage, title, duration: measured?.duration, plan };
    const file = await this.#converter.convert(convert, context);
    const wanted = { picture: false, sound: true, duration: medium.duration };
    requireWhole(await this.#converter.measure(file, context), wanted);
    return { file, suffixes: [plan.ext] };
  }

  /** @param {JobOrder} order @param {Medium} medium @param {Context} context @returns {Promise<Saved>} */
  async #saveSubtitle({ trackId = '', subtitleFormat = 'vtt' }, medium, context) {
    const track = findTrack(medium, trackId, subtitleFormat);
    if (!track) throw new NothingDelivered('This link does not have the chosen subtitle track.');
    const fetched = await this.#downloader.fetchSubtitle(track.file, medium, context);
    const order = { file: fetched, format: subtitleFormat, automatic: track.automatic };
    const file = await this.#converter.convertSubtitle(order, context);
    return { file, suffixes: [track.language, subtitleFormat] };
  }

  /**
   * @param {{ id: string, format: import('./medium.mjs').Format }[]} streams
   * @param {Medium} medium
   * @param {Context} context
   */
  async #fetchStreams(streams, medium, context) {
    // The streams and the result that is made of them lie side by side for a while.
    const bytes = 2 * streams.reduce((sum, { format }) => sum + (format.bytes ?? 0), 0);
    await requireRoom(context.folder, bytes, this.#limits);
    return this.#downloader.fetchStreams(streams, medium, context);
  }

  // What yt-dlp knows about the link, heights filled in where only the file knows them.
  /** @param {Context} context */
  async #inspect(context) {
    context.report({ status: 'probing', stage: 'Reading the link…' });
    const medium = await this.#downloader.inspect(context);
    if (medium.formats.some(hasPicture)) return medium;
    const unknown = medium.formats.filter((format) => format.vcodec !== 'none');
    for (const format of unknown.slice(0, measuredFormatsLimit)) {
      const measured = await this.#converter.measureRemote(format, context);
      if (!measured) continue;
      format.height = measured.height;
      format.vcodec = measured.video ?? 'none';
      format.acodec = measured.audio ?? 'none';
      medium.duration ??= measured.duration;
    }
    return medium;
  }

  // A stream list tells its length without being downloaded; the smallest one is the cheapest to look into.
  /** @param {Medium} medium @param {Context} context */
  async #measureDuration({ formats }, context) {
    const [smallest] = [...formats].sort((a, b) => (a.tbr ?? 0) - (b.tbr ?? 0));
    return smallest && (await this.#converter.measureRemote(smallest, context))?.duration;
  }

  /** @param {MediaOrder} order @param {Medium} medium */
  #remember(order, medium) {
    this.#remembered.delete(keyOf(order));
    this.#remembered.set(keyOf(order), { medium, at: this.#now() });
    const [oldest] = this.#remembered.keys();
    if (this.#remembered.size > rememberedLimit) this.#remembered.delete(oldest);
  }

  /** @param {MediaOrder} order */
  #recall(order) {
    const found = this.#remembered.get(keyOf(order));
    return found && this.#now() - found.at < youngMs ? found.medium : undefined;
  }
}

// Another login may be offered other media behind the same link.
/** @param {MediaOrder} order */
function keyOf({ link, browserLogin }) {
  return JSON.stringify([link, browserLogin]);
}

// What a result was made of is of no use beside it, and the information file may name cookies.
/** @param {string} folder @param {string | null} file */
async function removeAllBut(folder, file) {
  const names = await readdir(folder);
  const others = names.filter((name) => file === null || name !== path.basename(file));
  await Promise.all(others.map((name) => rm(path.join(folder, name), { recursive: true, force: true })));
}
