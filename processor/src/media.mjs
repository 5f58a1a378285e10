// The work of the jobs: reads what a link leads to, and downloads one output of it.

import { readdir, rm, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { JobFailure } from './errors.mjs';
import {
  convertArguments,
  measureArguments,
  parseConvertProgress,
  parseMeasurement,
  planAudio,
  planVideo,
} from './ffmpeg.mjs';
import { chooseForAudio, chooseForVideo, hasPicture, qualitiesOf, usableFormats } from './formats.mjs';
import { proposeFilename } from './names.mjs';
import { StreamProgress } from './stream_progress.mjs';
import { describeSubtitles, findTrack } from './subtitles.mjs';
import { inspectArguments, parseProgress, readableError, streamArguments, subtitleArguments } from './ytdlp.mjs';

const inspectLimitMs = 180_000;
const measureLimitMs = 10_000;
const measuredFormatsLimit = 3;

// Where in a job's 0 to 100 its steps lie.
const analysisShare = { measuring: 80 };
const downloadShare = { start: 2, end: 92 };
const convertShare = { start: 92, end: 99 };

export class Media {
  #config;
  #tools;

  constructor({ config, tools }) {
    this.#config = config;
    this.#tools = tools;
  }

  /** Work of an analysis job: fills in its answer and resolves to what was offered, { qualities, trackIds }. */
  async analyse({ link, browserLogin }, job, folder, signal) {
    job.report({ status: 'probing', stage: 'Reading the link…' });
    const context = { job, folder, signal };
    const info = await this.#inspect({ link, browserLogin }, context);
    job.report({ stage: 'Measuring the media…', progress: analysisShare.measuring });
    const duration = info.duration > 0 ? info.duration : await this.#measureDuration(info, context);
    const qualities = qualitiesOf(info);
    const { tracks, originalLanguage, recommendedSubtitleId } = describeSubtitles(info);
    job.answer = {
      ...(typeof info.title === 'string' && info.title.trim() ? { title: info.title.trim() } : {}),
      ...(Number.isFinite(duration) ? { duration } : {}),
      formats: qualities.map((quality) => ({ quality })),
      subtitles: tracks,
      originalLanguage,
      recommendedSubtitleId,
    };
    return { qualities, trackIds: tracks.map((track) => track.id) };
  }

  /** Work of a download job: leaves one file in `folder` and names it in the job's result. */
  async download(order, job, folder, signal) {
    const context = { job, folder, signal, browserLogin: order.browserLogin };
    job.report({ status: 'probing', stage: 'Reading the link…' });
    const info = await this.#inspect(order, context);
    const save = { video: this.#saveVideo, audio: this.#saveAudio, subtitle: this.#saveSubtitle }[order.mode];
    const { file, suffixes } = await save.call(this, order, info, context);
    await requireContent(file);
    await removeOthers(folder, file);
    job.result = { file, filename: proposeFilename(info.title, ...suffixes) };
  }

  async #saveVideo({ quality }, info, context) {
    const chosen = chooseForVideo(info, quality);
    if (!chosen) throw new JobFailure(`This link does not offer ${quality}.`);
    const streams = [{ id: 'video', format: chosen.video }];
    if (chosen.audio) streams.push({ id: 'audio', format: chosen.audio });
    const files = await this.#fetchStreams(streams, info, context);
    const measured = await Promise.all(files.map((file) => this.#measure(file, context)));
    const soundIndex = measured.findLastIndex((measurement) => measurement?.audio);
    const plan = planVideo(measured[0]?.video, measured[soundIndex]?.audio);
    const file = await this.#convert(
      {
        inputs: files,
        maps: ['0:v:0', ...(soundIndex >= 0 ? [`${soundIndex}:a:0`] : [])],
        stage: files.length > 1 ? 'Merging video and audio…' : 'Preparing the video…',
        duration: measured[0]?.duration,
      },
      plan,
      info,
      context,
    );
    return { file, suffixes: [plan.ext] };
  }

  async #saveAudio(order, info, context) {
    const format = chooseForAudio(info);
    if (!format) throw new JobFailure('This link has no sound to save.');
    const [source] = await this.#fetchStreams([{ id: 'audio', format }], info, context);
    const measured = await this.#measure(source, context);
    if (measured && !measured.audio) throw new JobFailure('This link has no sound to save.');
    const plan = planAudio(measured?.audio);
    const file = await this.#convert(
      { inputs: [source], maps: ['0:a:0'], stage: 'Preparing the audio…', duration: measured?.duration },
      plan,
      info,
      context,
    );
    return { file, suffixes: [plan.ext] };
  }

  async #saveSubtitle({ trackId, subtitleFormat }, info, context) {
    const track = findTrack(info, trackId, subtitleFormat);
    if (!track) throw new JobFailure('This link does not have the chosen subtitle track.');
    const { folder, job, browserLogin } = context;
    job.report({ status: 'downloading', stage: 'Downloading subtitle…', progress: downloadShare.start });
    // The track gets a name of ours: the site's could not be told from a pattern or a path.
    const only = { subtitles: { track: [track.files[0]] }, automatic_captions: {} };
    const infoFile = await writeInfo(folder, { ...info, ...only });
    const progress = new StreamProgress([{ id: 'subtitle', format: {} }]);
    await this.#runYtDlp(
      subtitleArguments({ infoFile, folder, format: subtitleFormat, browserLogin, ffmpeg: this.#config.ffmpeg }),
      context,
      // yt-dlp names the format it would have downloaded, not the track.
      (line) => followDownload(job, progress, parseProgress(line), 'subtitle'),
    );
    const names = await readdir(folder);
    const name = names.find((entry) => entry.startsWith('subtitle.') && entry.endsWith(`.${subtitleFormat}`));
    if (!name) throw new JobFailure('The subtitle track could not be fetched.');
    return { file: path.join(folder, name), suffixes: [track.language, subtitleFormat] };
  }

  // What yt-dlp knows about the link: one medium with its formats, heights filled in where only the file knows them.
  async #inspect({ link, browserLogin }, context) {
    const { stdout, ...end } = await this.#tools.run(
      this.#config.ytDlp,
      inspectArguments({ link, browserLogin }),
      this.#options('yt-dlp', context, { timeoutMs: inspectLimitMs }),
    );
    const answer = parseJson(stdout);
    if (end.code !== 0 || !answer) throw new JobFailure(readableError(end.stderr, end));
    const info = onlyMedium(answer);
    if (info.is_live === true) throw new JobFailure('A live stream cannot be saved before it has ended.');
    await this.#fillInHeights(info, context);
    return info;
  }

  async #fillInHeights(info, context) {
    const formats = usableFormats(info);
    if (formats.some(hasPicture)) return;
    const unknown = formats.filter((format) => format.vcodec !== 'none' && format.url);
    for (const format of unknown.slice(0, measuredFormatsLimit)) {
      const measured = await this.#measureRemote(format, info, context);
      if (!measured) continue;
      format.height = measured.height;
      format.vcodec = measured.video ?? 'none';
      format.acodec = measured.audio ?? 'none';
      info.duration ??= measured.duration;
    }
  }

  // A stream list tells its length without being downloaded; the smallest one is the cheapest to look into.
  async #measureDuration(info, context) {
    const formats = usableFormats(info).filter((format) => format.url);
    const [smallest] = formats.sort((a, b) => (a.tbr ?? 0) - (b.tbr ?? 0));
    return smallest && (await this.#measureRemote(smallest, info, context))?.duration;
  }

  async #measureRemote(format, info, context) {
    const headers = format.http_headers ?? info.http_headers ?? {};
    return /^https?:/.test(format.url) ? this.#measure(format.url, context, headers) : null;
  }

  // A measurement that fails only means that less is known.
  async #measure(target, context, headers) {
    try {
      const options = this.#options('ffprobe', context, { timeoutMs: measureLimitMs });
      const { code, stdout } = await this.#tools.run(this.#config.ffprobe, measureArguments(target, headers), options);
      return code === 0 ? parseMeasurement(stdout) : null;
    } catch (error) {
      if (error instanceof JobFailure) return null;
      throw error;
    }
  }

  // Downloads the streams one after the other; resolves to their files in the same order.
  async #fetchStreams(streams, info, context) {
    const { job, folder, browserLogin } = context;
    const progress = new StreamProgress(streams, info.duration);
    job.report({ status: 'downloading', stage: `Downloading ${streams[0].id}…`, progress: downloadShare.start });
    const formats = streams.map(({ id, format }) => ({ ...format, format_id: id }));
    const infoFile = await writeInfo(folder, { ...info, formats, subtitles: {}, automatic_captions: {} });
    const formatIds = streams.map(({ id }) => id);
    await this.#runYtDlp(
      streamArguments({ infoFile, folder, formatIds, browserLogin, ffmpeg: this.#config.ffmpeg }),
      context,
      (line) => followDownload(job, progress, parseProgress(line)),
    );
    const names = await readdir(folder);
    return formatIds.map((id) => {
      const name = names.find((entry) => entry.startsWith(`${id}.`) && !/\.(part|ytdl|temp\.\w+)$/.test(entry));
      if (!name) throw new JobFailure(`yt-dlp did not deliver the ${id}.`);
      return path.join(folder, name);
    });
  }

  async #convert({ inputs, maps, stage, duration }, { ext, codecs }, info, context) {
    const { job, folder } = context;
    job.report({ status: 'processing', stage, progress: convertShare.start });
    const output = path.join(folder, `result.${ext}`);
    const title = typeof info.title === 'string' ? info.title.replaceAll('\0', '') : '';
    const end = await this.#tools.run(
      this.#config.ffmpeg,
      convertArguments({ inputs, maps, codecs, title, output }),
      this.#options('ffmpeg', context, {
        onLine: (line) => {
          const seconds = parseConvertProgress(line);
          if (seconds !== null && duration > 0) job.report({ progress: within(convertShare, seconds / duration) });
        },
      }),
    );
    if (end.code !== 0) throw new JobFailure(readableError(end.stderr, end, 'ffmpeg'));
    return output;
  }

  async #runYtDlp(args, context, onLine) {
    const end = await this.#tools.run(this.#config.ytDlp, args, this.#options('yt-dlp', context, { onLine }));
    if (end.code !== 0) throw new JobFailure(readableError(end.stderr, end));
  }

  #options(name, { folder, signal }, more) {
    return { name, cwd: folder, env: toolEnvironment(folder), signal, ...more };
  }
}

// The tools keep their temporary files, such as copies of a browser's cookies, where the job's end removes them.
function toolEnvironment(folder) {
  const { HOST, PORT, TEMP_ROOT, ZUNTO_HELPER_PARENT_PID, ZUNTO_DEPENDENCIES_VERIFIED, ...env } = process.env;
  return { ...env, TMPDIR: folder, PYTHONIOENCODING: 'utf-8' };
}

function onlyMedium(answer) {
  if (answer._type !== 'playlist' && answer._type !== 'multi_video') return answer;
  const entries = (answer.entries ?? []).filter(Boolean);
  if (entries.length === 1 && answer.playlist_count === 1) return entries[0];
  if (entries.length === 0) throw new JobFailure('This link leads to no media.');
  throw new JobFailure('This link leads to a list of media. Use the link of one of them.');
}

// Without the page's address yt-dlp reports a failed download as such instead of reading the link again, which
// could lead to other formats than the chosen ones.
async function writeInfo(folder, info) {
  const { webpage_url, original_url, url, requested_formats, requested_downloads, ...kept } = info;
  const file = path.join(folder, 'info.json');
  await writeFile(file, JSON.stringify(kept), { mode: 0o600 });
  return file;
}

function followDownload(job, progress, report, id = report?.id) {
  if (!report) return;
  progress.update({ ...report, id });
  const stage = progress.allFinished ? 'Preparing the download…' : `Downloading ${id}…`;
  job.report({ stage, progress: within(downloadShare, progress.fraction) });
}

function within({ start, end }, fraction) {
  return start + (end - start) * Math.min(1, Math.max(0, fraction));
}

function parseJson(text) {
  try {
    const value = JSON.parse(text);
    return typeof value === 'object' ? value : null;
  } catch {
    return null;
  }
}

async function requireContent(file) {
  const { size } = await stat(file);
  if (size === 0) throw new JobFailure('The download is empty.');
}

// The streams have been merged and the information file may name cookies; only the result is kept.
async function removeOthers(folder, file) {
  const names = await readdir(folder);
  const others = names.filter((name) => name !== path.basename(file));
  await Promise.all(others.map((name) => rm(path.join(folder, name), { recursive: true, force: true })));
}
