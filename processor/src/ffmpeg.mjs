// How ffmpeg and ffprobe are called and how their answers are read.

import { codecFamily, isWebVideo } from './formats.mjs';

const mp4Video = ['h264', 'hevc', 'av1', 'mpeg4'];
const mp4Audio = ['aac', 'mp3'];
const webmAudio = ['opus', 'vorbis'];
const aacAgain = ['-c:a', 'aac', '-b:a', '192k'];
const keepAudio = ['-c:a', 'copy'];

/** Describes a local file or, with the request headers that yt-dlp would send, a remote stream. */
export function measureArguments(target, headers) {
  return [
    '-v',
    'error',
    ...(headers ? remoteArguments(headers) : []),
    '-show_entries',
    'format=duration:stream=codec_type,codec_name,height:stream_disposition=attached_pic',
    '-of',
    'json',
    '-i',
    target,
  ];
}

/** { duration, video, audio, height } of ffprobe's answer, each undefined when absent; null if it is none. */
export function parseMeasurement(json) {
  try {
    const { format = {}, streams = [] } = JSON.parse(json);
    const video = streams.find((stream) => stream.codec_type === 'video' && stream.disposition?.attached_pic !== 1);
    const audio = streams.find((stream) => stream.codec_type === 'audio');
    const duration = Number(format.duration);
    return {
      duration: duration > 0 && Number.isFinite(duration) ? duration : undefined,
      video: video?.codec_name,
      audio: audio?.codec_name,
      height: video?.height > 0 ? video.height : undefined,
    };
  } catch {
    return null;
  }
}

/** Container and codec arguments for a picture and a sound codec (undefined for a silent medium). */
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

/** The same for sound alone: MP3 stays MP3, everything else becomes M4A with AAC. */
export function planAudio(sound) {
  if (codecFamily(sound) === 'mp3') return { ext: 'mp3', codecs: keepAudio };
  const codecs = codecFamily(sound) === 'aac' ? keepAudio : aacAgain;
  return { ext: 'm4a', codecs: [...codecs, '-movflags', '+faststart'] };
}

/** Writes `output` from the first picture and the first sound of the inputs that `maps` names. */
export function convertArguments({ inputs, maps, codecs, title, output }) {
  return [
    '-v',
    'error',
    '-nostdin',
    '-nostats',
    '-progress',
    'pipe:1',
    '-y',
    ...inputs.flatMap((file) => ['-i', file]),
    ...maps.flatMap((map) => ['-map', map]),
    ...(title ? ['-metadata', `title=${title}`] : []),
    ...codecs,
    output,
  ];
}

/** Seconds of output written so far, from one line of ffmpeg's progress report; null for any other line. */
export function parseConvertProgress(line) {
  const match = /^out_time_us=(\d+)/.exec(line);
  return match ? Number(match[1]) / 1e6 : null;
}

function remoteArguments(headers) {
  // Arguments can be read by every user of the machine, so nothing that identifies a person is passed in them.
  const wanted = ['Referer', 'Origin', 'Accept-Language'];
  const isSafe = (value) => typeof value === 'string' && !/[\p{Cc}]/u.test(value);
  const lines = wanted.filter((name) => isSafe(headers[name])).map((name) => `${name}: ${headers[name]}\r\n`);
  return [
    '-protocol_whitelist',
    'https,http,tls,tcp,crypto,data',
    ...(isSafe(headers['User-Agent']) ? ['-user_agent', headers['User-Agent']] : []),
    ...(lines.length > 0 ? ['-headers', lines.join('')] : []),
  ];
}
