// How ffmpeg and ffprobe are called and how their answers are read. They are always told which kinds of input they may
// open: a list of streams in the clothes of a video could otherwise have them read the user's own files.

import { JobFailure } from './errors.mjs';
import { codecFamily, isWebVideo } from './formats.mjs';
import { cleanDuration } from './medium.mjs';

/** @typedef {{ duration?: number, video?: string, audio?: string, height?: number }} Measurement */

const mp4Video = ['h264', 'hevc', 'av1', 'mpeg4'];
const mp4Audio = ['aac', 'mp3'];
const webmAudio = ['opus', 'vorbis'];
const aacAgain = ['-c:a', 'aac', '-b:a', '192k'];
const keepAudio = ['-c:a', 'copy'];

const containers =
  'mov,matroska,mpegts,mpeg,flv,avi,asf,ogg,mp3,aac,ac3,eac3,flac,wav,aiff,amr,caf,ivf,h264,hevc,av1,obu,m4v,mpegvideo';
const localOnly = ['-format_whitelist', containers, '-protocol_whitelist', 'file'];
const streamLists = 'hls,dash,webvtt';
const remoteOnly = [
  '-format_whitelist',
  `${containers},${streamLists}`,
  '-protocol_whitelist',
  'https,tls,tcp,httpproxy,crypto,data',
];

/** @type {Record<string, string>} */
const subtitleDemuxers = { vtt: 'webvtt', srt: 'srt', ass: 'ass', ssa: 'ass' };
/** @type {Record<string, string>} */
const subtitleMuxers = { vtt: 'webvtt', srt: 'srt' };

// A site's own word on a length is only roughly right.
const plausibleShare = 0.75;
const plausibleSeconds = 5;

/**
 * Describes a local file or, with the request headers that yt-dlp would send, a remote stream.
 * @param {string} target
 * @param {Record<string, string>} [headers]
 */
export function measureArguments(target, headers) {
  return [
    '-v',
    'error',
    ...(headers ? [...remoteOnly, ...headerArguments(headers)] : localOnly),
    '-show_entries',
    'format=duration:stream=codec_type,codec_name,height:stream_disposition=attached_pic',
    '-of',
    'json',
    '-i',
    target,
  ];
}

/**
 * What ffprobe's answer says, each part undefined when absent; null if it is no answer.
 * @param {string} json
 * @returns {Measurement | null}
 */
export function parseMeasurement(json) {
  try {
    /** @type {{ format?: { duration?: string }, streams?: Record<string, any>[] }} */
    const { format = {}, streams = [] } = JSON.parse(json);
    const video = streams.find((stream) => stream.codec_type === 'video' && stream.disposition?.attached_pic !== 1);
    const audio = streams.find((stream) => stream.codec_type === 'audio');
    return {
      duration: cleanDuration(Number(format.duration)),
      video: video?.codec_name,
      audio: audio?.codec_name,
      height: video?.height > 0 ? video?.height : undefined,
    };
  } catch {
    return null;
  }
}

/**
 * Throws JobFailure unless a file is what was wanted of it: its streams are there, and it is about as long as the
 * site says its medium is.
 * @param {Measurement | null} measured
 * @param {{ picture: boolean, sound: boolean, duration?: number }} wanted
 */
export function requireWhole(measured, { picture, sound, duration = 0 }) {
  if (!measured) throw new JobFailure('What the site delivered is no video or sound that can be read.');
  if (picture && !measured.video) throw new JobFailure('What the site delivered has no picture.');
  if (sound && !measured.audio) throw new JobFailure('What the site delivered has no sound.');
  const { duration: length = 0 } = measured;
  if (length < duration * plausibleShare && length < duration - plausibleSeconds) {
    throw new JobFailure(`The site delivered only ${clock(length)} of ${clock(duration)}.`);
  }
}

/**
 * Container and codec arguments for a picture and a sound codec (undefined for a silent medium).
 * @param {string | undefined} picture
 * @param {string | undefined} sound
 */
export function planVideo(picture, sound) {
  const family = codecFamily(picture);
  if (isWebVideo(family) && (!sound || webmAudio.includes(codecFamily(sound)))) {
    return { ext: 'webm', codecs: ['-c:v', 'copy', ...keepAudio] };
  }
  if (!mp4Video.includes(family)) return { ext: 'mkv', codecs: ['-c:v', 'copy', ...keepAudio] };
  const tag = family === 'hevc' ? ['-tag:v', 'hvc1'] : [];
  const audio = mp4Audio.includes(codecFamily(sound)) ? keepAudio : aacAgain;
  return { ext: 'mp4', codecs: ['-c:v', 'copy', ...tag, ...audio, '-movflags', '+faststart'] };
}

/**
 * The same for sound alone: MP3 stays MP3, everything else becomes M4A with AAC.
 * @param {string | undefined} sound
 */
export function planAudio(sound) {
  if (codecFamily(sound) === 'mp3') return { ext: 'mp3', codecs: keepAudio };
  const codecs = codecFamily(sound) === 'aac' ? keepAudio : aacAgain;
  return { ext: 'm4a', codecs: [...codecs, '-movflags', '+faststart'] };
}

/**
 * Writes `output` from the streams of the inputs that `maps` names.
 * @param {{ inputs: string[], maps: string[], codecs: string[], title: string, output: string }} order
 */
export function convertArguments({ inputs, maps, codecs, title, output }) {
  return [
    '-v',
    'error',
    '-nostdin',
    '-nostats',
    '-progress',
    'pipe:1',
    '-y',
    ...inputs.flatMap((file) => [...localOnly, '-i', file]),
    ...maps.flatMap((map) => ['-map', map]),
    ...(title ? ['-metadata', `title=${title}`] : []),
    ...codecs,
    output,
  ];
}

/**
 * Writes a subtitle file of the kind `from` again as one of the kind `to`.
 * @param {{ input: string, from: string, to: string, output: string }} order
 */
export function convertSubtitleArguments({ input, from, to, output }) {
  const demuxer = subtitleDemuxers[from];
  const only = ['-f', demuxer, '-format_whitelist', demuxer, '-protocol_whitelist', 'file'];
  return ['-v', 'error', '-nostdin', '-y', ...only, '-i', input, '-f', subtitleMuxers[to], output];
}

/**
 * Seconds of output written so far, from one line of ffmpeg's progress report; null for any other line.
 * @param {string} line
 */
export function parseConvertProgress(line) {
  const match = /^out_time_us=(\d+)/.exec(line);
  return match ? Number(match[1]) / 1e6 : null;
}

/** @param {Record<string, string>} headers */
function headerArguments(headers) {
  // Arguments can be read by every user of the machine, so nothing that identifies a person is passed in them.
  const wanted = ['Referer', 'Origin', 'Accept-Language'];
  const lines = wanted.filter((name) => name in headers).map((name) => `${name}: ${headers[name]}\r\n`);
  return [
    ...('User-Agent' in headers ? ['-user_agent', headers['User-Agent']] : []),
    ...(lines.length > 0 ? ['-headers', lines.join('')] : []),
  ];
}

/** @param {number} seconds */
function clock(seconds) {
  const whole = Math.round(seconds);
  const [hours, minutes, rest] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60, whole % 60];
  /** @param {number} part */
  const pad = (part) => String(part).padStart(2, '0');
  return hours > 0 ? `${hours}:${pad(minutes)}:${pad(rest)}` : `${minutes}:${pad(rest)}`;
}
