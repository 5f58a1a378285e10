// The folder of this run under TEMP_ROOT and the job folders in it. Every run has a folder of its own, named after
// its process, so that a later run can tell what was left behind by one that died from what is still in use.

import { lstatSync, mkdirSync, rmSync } from 'node:fs';
import { mkdir, mkdtemp, readdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { identify } from './processes.mjs';

const privateMode = 0o700;
const runFolderPattern = /^run-([0-9]{1,10})-([0-9]{1,20}|unknown)$/;

export class Workspace {
  #root;
  #opened = false;

  constructor(root) {
    this.#root = root;
    const { startTime } = identify(process.pid);
    /** Absolute path of this run's folder. */
    this.folder = path.join(root, `run-${process.pid}-${startTime ?? 'unknown'}`);
  }

  /** Makes TEMP_ROOT and the run folder, readable by nobody else; throws when that cannot be had. */
  open() {
    try {
      mkdirSync(this.#root, { recursive: true, mode: privateMode });
      refuseStranger(this.#root);
      rmSync(this.folder, { recursive: true, force: true });
      mkdirSync(this.folder, { mode: privateMode });
      this.#opened = true;
    } catch (error) {
      throw new Error(`the temporary folder cannot be used: ${error.message}`);
    }
  }

  /** A new, empty, private folder. */
  async newJobFolder() {
    // Cleaners of the system's temporary folder may have taken an idle run's folder away.
    await mkdir(this.folder, { recursive: true, mode: privateMode });
    return mkdtemp(path.join(this.folder, 'job-'));
  }

  async removeJobFolder(folder) {
    await rm(folder, { recursive: true, force: true, maxRetries: 3 });
  }

  /** Removes the folders of runs whose process is gone; those of living runs and anything else stay. */
  async removeAbandoned(log) {
    try {
      for (const entry of await readdir(this.#root, { withFileTypes: true })) {
        if (!entry.isDirectory() || !this.#isAbandoned(entry.name)) continue;
        await rm(path.join(this.#root, entry.name), { recursive: true, force: true });
        log(`removed ${entry.name}, left behind by an earlier run`);
      }
    } catch (error) {
      log(`warning: folders of earlier runs cannot be removed: ${error.message}`);
    }
  }

  async remove() {
    if (this.#opened) await rm(this.folder, { recursive: true, force: true, maxRetries: 3 });
  }

  /** The same without giving way to anything else, for the last moment of the program. */
  removeNow() {
    if (this.#opened) rmSync(this.folder, { recursive: true, force: true });
  }

  #isAbandoned(name) {
    const match = runFolderPattern.exec(name);
    if (!match || path.join(this.#root, name) === this.folder) return false;
    const owner = identify(Number(match[1]));
    if (!owner.alive) return true;
    return match[2] !== 'unknown' && owner.startTime !== null && owner.startTime !== match[2];
  }
}

// The system's temporary folder is shared: a folder that another user has put there in advance must not be used. The
// permissions of a folder that was there before are left alone; the run folder is private in any case.
function refuseStranger(folder) {
  const info = lstatSync(folder);
  if (!info.isDirectory()) throw new Error(`${folder} is not a folder`);
  if (info.uid !== process.getuid()) throw new Error(`${folder} belongs to another user`);
}
