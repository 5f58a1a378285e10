// The few settings of yt-dlp that a user of this helper may need: how the network is reached. They come from a file
// of the helper's own, since the user's yt-dlp is set up for other work.

import { readFileSync, statSync } from 'node:fs';
import os from 'node:os';
import path from 'node:path';

/** @typedef {import('./upstream.mjs').Network & { anyCertificate?: boolean }} Settings */

const sizeLimit = 64 * 1024;

// The options that may be set, under yt-dlp's names. Most of them are no options for yt-dlp itself, which reaches the
// network through the gate only.
/** @type {Record<string, Settings>} */
const switches = {
  '--force-ipv4': { family: 4 },
  '-4': { family: 4 },
  '--force-ipv6': { family: 6 },
  '-6': { family: 6 },
  '--no-check-certificate': { anyCertificate: true },
  '--no-check-certificates': { anyCertificate: true },
};
/** @type {Record<string, (value: string) => Settings>} */
const values = {
  '--proxy': (proxy) => ({ proxy }),
  '--source-address': (sourceAddress) => ({ sourceAddress }),
};

/**
 * Reads the settings of the user whom the environment names, with a sentence for each thing that was left out.
 * @param {NodeJS.ProcessEnv} env
 * @returns {{ settings: Settings, warnings: string[] }}
 */
export function readSettings(env) {
  const file = settingsFile(env);
  try {
    const info = statSync(file);
    if (!info.isFile() || info.size > sizeLimit) throw new Error('it is no small text file');
    const { settings, warnings } = parseSettings(readFileSync(file, 'utf8'));
    return { settings, warnings: warnings.map((warning) => `${file}: ${warning}`) };
  } catch (error) {
    const warnings = error.code === 'ENOENT' ? [] : [`${file} cannot be read: ${error.message}`];
    return { settings: {}, warnings };
  }
}

/**
 * The same for the text of the file: one option per line, as on a command line.
 * @param {string} text
 * @returns {{ settings: Settings, warnings: string[] }}
 */
export function parseSettings(text) {
  const lines = text.split(/\r?\n/).map((line) => line.trim());
  /** @type {(Settings & { warning?: string })[]} */
  const read = lines.map((line, index) => (line === '' || line.startsWith('#') ? {} : parseLine(line, index + 1)));
  const warnings = read.flatMap(({ warning }) => (warning ? [warning] : []));
  const settings = Object.assign({}, ...read.filter((line) => !line.warning));
  return { settings, warnings };
}

/**
 * Values stay out of the warnings: one may be a password.
 * @param {string} line
 * @param {number} number
 * @returns {Settings & { warning?: string }}
 */
function parseLine(line, number) {
  const [, name = '', rest = ''] = /^(--?[A-Za-z0-9-]+)(?:[=\s]\s*(.*))?$/.exec(line) ?? [];
  if (!name) return { warning: `line ${number} is no option` };
  if (name in switches) return rest ? { warning: `${name} takes no value and is left out` } : switches[name];
  if (!(name in values)) return { warning: `${name} cannot be set there and is left out` };
  const [, , value] = /^(["']?)([^\s"']+)\1$/.exec(rest) ?? [];
  if (value === undefined) return { warning: `${name} needs one value and is left out` };
  return values[name](value);
}

/** @param {NodeJS.ProcessEnv} env */
function settingsFile(env) {
  const given = env.XDG_CONFIG_HOME ?? '';
  const folder = path.isAbsolute(given) ? given : path.join(env.HOME || os.homedir(), '.config');
  return path.join(folder, 'zunto-helper', 'yt-dlp.conf');
}
