// How yt-dlp is called and how its lines are read. It is run in the folder of the job, and names of files are relative
// to that: yt-dlp expands variables and fields in the paths that it is given.
//
// yt-dlp gets no ffmpeg. What it would have done by it (mending, merging, converting, some kinds of streams) is done
// here or not at all, since ffmpeg must be told which inputs it may open.

const progressMark = '@progress ';
const fileMark = '@file ';
const progressFields = 'status,downloaded_bytes,total_bytes,total_bytes_estimate';
const firstWithRuntimes = '2025.11.12';

/**
 * One line on the state of a download; numbers are null when they are not known.
 * @typedef {{ id: string, finished: boolean, done: number | null, total: number | null, estimate: number | null }}
 *   ProgressReport
 *
 * What every call is told: the day of yt-dlp's version when it is known, whether a site's certificate may be one that
 * nobody vouches for, and the browser whose login is used.
 * @typedef {{ version: string | null, anyCertificate: boolean, browserLogin: string | null }} Manner
 */

/** @param {Manner} manner */
function commonArguments({ version, anyCertificate, browserLogin }) {
  return [
    // The user's yt-dlp is set up for the user: options for cookies, formats, names or sections would change every job.
    '--ignore-config',
    '--no-playlist',
    '--no-progress',
    '--socket-timeout',
    '20',
    '--ffmpeg-location',
    'none',
    // Some sites hide their addresses behind a script, which this very program can run.
    ...(version !== null && version >= firstWithRuntimes ? ['--js-runtimes', `node:${process.execPath}`] : []),
    ...(anyCertificate ? ['--no-check-certificates'] : []),
    ...(browserLogin ? ['--cookies-from-browser', browserLogin] : []),
  ];
}

/**
 * Reads what a link leads to, as JSON on standard output. Of a playlist only the first entry is looked at.
 * @param {string} link
 * @param {Manner} manner
 */
export function inspectArguments(link, manner) {
  return [
    ...commonArguments(manner),
    '--dump-single-json',
    '--playlist-items',
    '1',
    // The choice of format is ours; a medium that yt-dlp's own choice does not fit must not make the reading fail.
    '--format',
    'b*/bv*/ba*',
    '--ignore-no-formats-error',
    '--',
    link,
  ];
}

/**
 * Downloads the formats of an information file and reports the file of each (see parseFile).
 * @param {{ infoFile: string, formatIds: string[] }} order
 * @param {Manner} manner
 */
export function streamArguments({ infoFile, formatIds }, manner) {
  return [
    ...commonArguments(manner),
    ...progressArguments(),
    '--load-info-json',
    infoFile,
    '--format',
    formatIds.join(','),
    '--concurrent-fragments',
    '4',
    // A medium with holes is not what was asked for.
    '--abort-on-unavailable-fragments',
    '--fixup',
    'never',
    '--output',
    '%(format_id)s.%(ext)s',
    '--print',
    `after_move:${fileMark}%(format_id)s %(filepath)j`,
  ];
}

/**
 * Downloads the only subtitle track of an information file, "track", and reports its file (see parseFile). The file
 * is as the site has it, but that TTML, which ffmpeg cannot read, becomes SRT.
 * @param {{ infoFile: string, ext: string }} order
 * @param {Manner} manner
 */
export function subtitleArguments({ infoFile, ext }, manner) {
  return [
    ...commonArguments(manner),
    ...progressArguments(),
    '--load-info-json',
    infoFile,
    '--skip-download',
    '--ignore-no-formats-error',
    '--write-subs',
    '--sub-langs',
    'all',
    '--sub-format',
    'best',
    ...(ext === 'ttml' || ext === 'dfxp' ? ['--convert-subs', 'srt'] : []),
    '--output',
    'subtitle.%(ext)s',
    '--print',
    `after_video:${fileMark}track %(requested_subtitles.track.filepath)j`,
  ];
}

/**
 * Reads one line on the state of a download; null for any other line.
 * @param {string} line
 * @returns {ProgressReport | null}
 */
export function parseProgress(line) {
  const start = line.indexOf(progressMark);
  if (start < 0) return null;
  const [, id = '', json = ''] = /^(\S+) (\{.*\})/.exec(line.slice(start + progressMark.length)) ?? [];
  try {
    const fields = JSON.parse(json);
    return {
      id,
      finished: fields.status === 'finished',
      done: positive(fields.downloaded_bytes),
      total: positive(fields.total_bytes),
      estimate: positive(fields.total_bytes_estimate),
    };
  } catch {
    return null;
  }
}

/**
 * Reads one line that reports a finished file, relative to the folder of the job; null for any other line.
 * @param {string} line
 * @returns {{ id: string, file: string } | null}
 */
export function parseFile(line) {
  const [, id = '', json = ''] = /^@file (\S+) (.*)$/.exec(line) ?? [];
  try {
    const file = JSON.parse(json);
    return typeof file === 'string' ? { id, file } : null;
  } catch {
    return null;
  }
}

function progressArguments() {
  return [
    '--progress',
    '--newline',
    '--progress-template',
    `download:${progressMark}%(info.format_id)s %(progress.{${progressFields}})j`,
  ];
}

/** @param {unknown} value */
function positive(value) {
  return typeof value === 'number' && Number.isFinite(value) && value >= 0 ? value : null;
}
