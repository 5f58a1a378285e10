// The folder of this run under TEMP_ROOT and the job folders in it. Every run has a folder of its own, named after
// its process, so that a later run can tell what was left behind by one that died from what is still in use.
//
// The system's temporary folder is shared, and cleaners take idle folders away. Whoever puts one of his own in such a
// place could have files of this user written over, so all folders are looked at before anything uses them.

import { lstatSync, mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { readdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { LostFolder } from './errors.mjs';
import { identify } from './processes.mjs';

const privateMode = 0o700;
const runFolderPattern = /^run-([0-9]{1,10})-([0-9]{1,20}|unknown)$/;

export class Workspace {
  #owner;
  #log;
  #opened = false;

  /**
   * @param {string} root TEMP_ROOT
   * @param {{ log?: (line: string) => void, owner?: number }} [options] `owner` is the user whom the folders must
   *     belong to
   */
  constructor(root, { log = () => {}, owner = process.getuid?.() ?? 0 } = {}) {
    /** Absolute path of TEMP_ROOT. */
    this.root = root;
    this.#owner = owner;
    this.#log = log;
    const { startTime } = identify(process.pid);
    /** Absolute path of this run's folder. */
    this.folder = path.join(root, `run-${process.pid}-${startTime ?? 'unknown'}`);
  }

  /** Makes TEMP_ROOT and the run folder, readable by nobody else; throws when that cannot be had. */
  open() {
    try {
      this.#makeRoot();
      rmSync(this.folder, { recursive: true, force: true });
      this.#makeRunFolder();
      this.#opened = true;
    } catch (error) {
      throw new Error(`the temporary folder cannot be used: ${error.message}`);
    }
  }

  /** A new, empty, private folder. Throws LostFolder when it cannot be had. */
  newJobFolder() {
    try {
      this.#makeRoot();
      this.#makeRunFolder();
      return mkdtempSync(path.join(this.folder, 'job-'));
    } catch (error) {
      throw this.#lose(error);
    }
  }

  /**
   * Throws LostFolder unless a folder of newJobFolder is still in its place.
   * @param {string} folder
   */
  requireJobFolder(folder) {
    try {
      for (const each of [this.root, this.folder, folder]) this.#refuseStranger(each);
    } catch (error) {
      throw this.#lose(error);
    }
  }

  /** @param {string} folder */
  async removeJobFolder(folder) {
    if (this.#mayRemoveIn(this.folder)) await rm(folder, { recursive: true, force: true, maxRetries: 3 });
  }

  /** Removes the folders of runs whose process is gone; those of living runs and anything else stay. */
  async removeAbandoned() {
    try {
      for (const entry of await readdir(this.root, { withFileTypes: true })) {
        if (!entry.isDirectory() || !this.#isAbandoned(entry.name)) continue;
        await rm(path.join(this.root, entry.name), { recursive: true, force: true });
        this.#log(`removed ${entry.name}, left behind by an earlier run`);
      }
    } catch (error) {
      this.#log(`warning: folders of earlier runs cannot be removed: ${error.message}`);
    }
  }

  async remove() {
    if (!this.#opened || !this.#mayRemoveIn(this.root)) return;
    await rm(this.folder, { recursive: true, force: true, maxRetries: 3 });
  }

  /** The same without giving way to anything else, for the last moment of the program. */
  removeNow() {
    if (this.#opened && this.#mayRemoveIn(this.root)) rmSync(this.folder, { recursive: true, force: true });
  }

  // The permissions of a root that was there before are left alone; the run folder is private in any case.
  #makeRoot() {
    mkdirSync(this.root, { recursive: true, mode: privateMode });
    this.#refuseStranger(this.root);
  }

  #makeRunFolder() {
    try {
      mkdirSync(this.folder, { mode: privateMode });
    } catch (error) {
      if (error.code !== 'EEXIST') throw error;
    }
    this.#refuseStranger(this.folder);
  }

  /** @param {string} folder */
  #refuseStranger(folder) {
    const info = lstatSync(folder);
    if (!info.isDirectory()) throw new Error(`${folder} is not a folder`);
    if (info.uid !== this.#owner) throw new Error(`${folder} belongs to another user`);
    const everyoneWrites = (info.mode & 0o002) !== 0;
    const onlyOwnersMove = (info.mode & 0o1000) !== 0;
    if (everyoneWrites && !onlyOwnersMove) throw new Error(`${folder} can be changed by every user`);
  }

  /**
   * A strange folder, and what it leads to, is left alone: not everything in it is ours.
   * @param {string} folder
   */
  #mayRemoveIn(folder) {
    try {
      this.#refuseStranger(this.root);
      this.#refuseStranger(folder);
      return true;
    } catch (error) {
      if (error.code !== 'ENOENT') this.#log(`warning: the temporary folder is left as it is: ${error.message}`);
      return false;
    }
  }

  /**
   * Paths are for the log.
   * @param {NodeJS.ErrnoException} error
   */
  #lose(error) {
    if (error.code === 'ENOSPC') return error;
    this.#log(`warning: the temporary folder cannot be used: ${error.message}`);
    return new LostFolder();
  }

  /** @param {string} name */
  #isAbandoned(name) {
    const match = runFolderPattern.exec(name);
    if (!match || path.join(this.root, name) === this.folder) return false;
    const owner = identify(Number(match[1]));
    if (!owner.alive) return true;
    return match[2] !== 'unknown' && owner.startTime !== null && owner.startTime !== match[2];
  }
}
