// Nothing endless: the work of a job ends when it would fill the disk, grows beyond measure or never comes to its end.

import fs from 'node:fs/promises';
import path from 'node:path';

import { JobFailure } from './errors.mjs';

const gibibyte = 2 ** 30;

export const defaultLimits = {
  durationMs: 12 * 3600 * 1000,
  bytes: 100 * gibibyte,
  spareBytes: gibibyte,
  intervalMs: 500,
  freeBytes,
};

/** @typedef {typeof defaultLimits} Limits */

/**
 * Does `work`, which gets a signal of its own, as long as the limits allow it to write to `folder`.
 * @template T
 * @param {{ folder: string, signal: AbortSignal, limits: Limits }} context
 * @param {(signal: AbortSignal) => Promise<T>} work
 * @returns {Promise<T>}
 */
export async function withinLimits({ folder, signal, limits }, work) {
  const controller = new AbortController();
  /** @type {JobFailure | null} */
  let failure = null;
  /** @param {string} message */
  const stop = (message) => {
    failure ??= new JobFailure(message);
    controller.abort();
  };
  const watch = async () => {
    const excess = await findExcess(folder, limits);
    if (excess) stop(excess);
  };
  const onAbort = () => controller.abort();
  if (signal.aborted) onAbort();
  signal.addEventListener('abort', onAbort, { once: true });
  const watcher = setInterval(watch, limits.intervalMs);
  const tooLong = `The job took longer than ${Math.round(limits.durationMs / 3_600_000)} hours.`;
  const alarm = setTimeout(() => stop(tooLong), limits.durationMs);
  try {
    await watch();
    return await work(controller.signal);
  } catch (error) {
    throw failure ?? error;
  } finally {
    clearInterval(watcher);
    clearTimeout(alarm);
    signal.removeEventListener('abort', onAbort);
  }
}

/**
 * Throws JobFailure when `bytes` more in `folder` would leave too little of the disk.
 * @param {string} folder
 * @param {number} bytes
 * @param {Limits} limits
 */
export async function requireRoom(folder, bytes, { freeBytes, spareBytes }) {
  if ((await freeBytes(folder)) - bytes < spareBytes) {
    throw new JobFailure(`There is not enough space on the disk: ${inGibibytes(bytes + spareBytes)} are needed.`);
  }
}

/** @param {string} folder @param {Limits} limits */
async function findExcess(folder, { bytes, spareBytes, freeBytes }) {
  if ((await freeBytes(folder)) < spareBytes) {
    return `The disk is nearly full: less than ${inGibibytes(spareBytes)} is free.`;
  }
  return (await sizeOf(folder)) > bytes ? `The media is larger than ${inGibibytes(bytes)}.` : null;
}

/** @param {string} folder */
async function freeBytes(folder) {
  // Node.js before 18.15 cannot tell; the job then fails when the disk is full.
  if (!fs.statfs) return Infinity;
  const { bavail, bsize } = await fs.statfs(folder).catch(() => ({ bavail: Infinity, bsize: 1 }));
  return bavail * bsize;
}

// A file may be renamed or removed while it is looked at.
/** @param {string} folder */
async function sizeOf(folder) {
  const names = await fs.readdir(folder).catch(() => []);
  const sizes = names.map((name) => fs.stat(path.join(folder, name)).then(({ size }) => size, () => 0));
  return (await Promise.all(sizes)).reduce((sum, size) => sum + size, 0);
}

/** @param {number} bytes */
function inGibibytes(bytes) {
  return `${Math.ceil(bytes / gibibyte)} GiB`;
}
