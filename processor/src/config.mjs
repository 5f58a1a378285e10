// The processor's settings, all taken from the environment that the helper sets.

import { accessSync, constants, statSync } from 'node:fs';
import { isIPv4 } from 'node:net';
import os from 'node:os';
import path from 'node:path';

const defaultHost = '127.0.0.1';
const defaultPort = '43127';

/**
 * @typedef {object} Config
 * @property {string} host
 * @property {number} port
 * @property {string} address host and port, as a Host header names them
 * @property {string} tempRoot absolute path
 * @property {string} ytDlp
 * @property {string} ffmpeg
 * @property {string} ffprobe
 * @property {boolean} toolsVerified the helper has found the tools in their places
 * @property {number | null} parentPid the helper's process, null when the processor runs for itself
 */

/**
 * Reads the environment; throws an Error whose message names the variable that cannot be used.
 * @param {NodeJS.ProcessEnv} env
 * @returns {Config}
 */
export function readConfig(env) {
  const host = env.HOST || defaultHost;
  if (!isLoopback(host)) throw new Error(`HOST must be a loopback address, not "${host}"`);
  const port = wholeNumber('PORT', env.PORT || defaultPort, 65_535);
  const address = host.includes(':') ? `[${host}]:${port}` : `${host}:${port}`;
  const tempRoot = env.TEMP_ROOT || path.join(os.tmpdir(), 'zunto-video-import');
  if (!path.isAbsolute(tempRoot)) throw new Error('TEMP_ROOT must be an absolute path');
  return {
    host,
    port,
    address,
    tempRoot,
    ytDlp: locate(env.YT_DLP_PATH, 'yt-dlp', env.PATH),
    ffmpeg: locate(env.FFMPEG_PATH, 'ffmpeg', env.PATH),
    ffprobe: locate(env.FFPROBE_PATH, 'ffprobe', env.PATH),
    toolsVerified: env.ZUNTO_DEPENDENCIES_VERIFIED === '1',
    parentPid: env.ZUNTO_HELPER_PARENT_PID
      ? wholeNumber('ZUNTO_HELPER_PARENT_PID', env.ZUNTO_HELPER_PARENT_PID, 2 ** 31 - 1)
      : null,
  };
}

/**
 * One sentence per tool that cannot be run; nothing when the helper has already checked them.
 * @param {Config} config
 */
export function findMissingTools(config) {
  if (config.toolsVerified) return [];
  return [
    ['yt-dlp', config.ytDlp],
    ['ffmpeg', config.ffmpeg],
    ['ffprobe', config.ffprobe],
  ]
    .filter(([, file]) => !isExecutable(file))
    .map(([name, file]) => `${name} cannot be run at ${file}`);
}

/** @param {string} host */
function isLoopback(host) {
  return host === '::1' || (isIPv4(host) && host.startsWith('127.'));
}

/**
 * @param {string} name
 * @param {string} text
 * @param {number} maximum
 */
function wholeNumber(name, text, maximum) {
  const value = /^[0-9]{1,10}$/.test(text) ? Number(text) : 0;
  if (value < 1 || value > maximum) throw new Error(`${name} must be a number from 1 to ${maximum}, not "${text}"`);
  return value;
}

/**
 * @param {string | undefined} given
 * @param {string} name
 * @param {string | undefined} searchPath
 */
function locate(given, name, searchPath) {
  if (given) return given;
  const folders = (searchPath ?? '').split(path.delimiter).filter((folder) => path.isAbsolute(folder));
  return folders.map((folder) => path.join(folder, name)).find(isExecutable) ?? name;
}

/** @param {string} file */
function isExecutable(file) {
  try {
    accessSync(file, constants.X_OK);
    return statSync(file).isFile();
  } catch {
    return false;
  }
}
