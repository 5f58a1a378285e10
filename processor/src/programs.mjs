// Runs the media tools for a job: in its folder, with an environment of their own, and to the network only through
// the gate.

/** @typedef {import('./downloader.mjs').Context} Context */
/** @typedef {'yt-dlp' | 'ffmpeg' | 'ffprobe'} Name */
/** @typedef {{ code: number | null, signal: string | null, stdout: string, stderr: string }} End */
/** @typedef {End & { refusal: string | null }} OnlineEnd */
/** @typedef {{ onLine?: (line: string) => void, timeoutMs?: number }} Options */

export class Programs {
  #files;
  #tools;
  #gate;

  /**
   * @param {{ config: { ytDlp: string, ffmpeg: string, ffprobe: string }, tools: import('./tools.mjs').Tools,
   *   gate: import('./gate.mjs').Gate }} options
   */
  constructor({ config, tools, gate }) {
    this.#files = { 'yt-dlp': config.ytDlp, ffmpeg: config.ffmpeg, ffprobe: config.ffprobe };
    this.#tools = tools;
    this.#gate = gate;
  }

  /**
   * Runs a tool that needs no network.
   * @param {Name} name
   * @param {string[]} args
   * @param {Context} context
   * @param {Options} [options]
   * @returns {Promise<End>}
   */
  run(name, args, context, options) {
    return this.#run(name, args, context, process.env, options);
  }

  /**
   * Runs a tool that reaches the network for the link of the job. `refusal` tells why it was not let there.
   * @param {Name} name
   * @param {string[]} args
   * @param {Context} context
   * @param {Options & { plainHttp?: boolean }} [options]
   * @returns {Promise<OnlineEnd>}
   */
  runOnline(name, args, context, { plainHttp = false, ...options } = {}) {
    return this.#gate.open({ link: context.link, plainHttp }, async (pass, env) => {
      const end = await this.#run(name, args, context, env, options);
      return { ...end, refusal: pass.explain(end.stderr) };
    });
  }

  /**
   * @param {Name} name
   * @param {string[]} args
   * @param {Context} context
   * @param {NodeJS.ProcessEnv} env
   * @param {Options} [options]
   */
  #run(name, args, { folder, signal }, env, options) {
    return this.#tools.run(this.#files[name], args, {
      name,
      folder,
      env: toolEnvironment(folder, env),
      signal,
      ...options,
    });
  }
}

// The tools keep their temporary files, such as copies of a browser's cookies, where the job's end removes them.
/** @param {string} folder @param {NodeJS.ProcessEnv} given */
function toolEnvironment(folder, given) {
  const { HOST, PORT, TEMP_ROOT, ZUNTO_HELPER_PARENT_PID, ZUNTO_DEPENDENCIES_VERIFIED, ...env } = given;
  return { ...env, TMPDIR: folder, PYTHONIOENCODING: 'utf-8' };
}
