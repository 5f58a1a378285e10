// Which yt-dlp is at work. Releases are named after their day, so that their names compare like days.

const askLimitMs = 30_000;

/**
 * A function that resolves to the day of yt-dlp's version, such as "2023.07.06", or to null when it cannot be told.
 * yt-dlp is asked once, at the first call: starting it takes a second.
 * @param {import('./tools.mjs').Tools} tools
 * @param {string} file
 */
export function ytDlpVersionOf(tools, file) {
  /** @type {Promise<string | null> | undefined} */
  let answer;
  return () => (answer ??= ask(tools, file));
}

/**
 * @param {import('./tools.mjs').Tools} tools
 * @param {string} file
 */
async function ask(tools, file) {
  try {
    const { stdout } = await tools.run(file, ['--ignore-config', '--version'], {
      name: 'yt-dlp',
      timeoutMs: askLimitMs,
    });
    return parseVersion(stdout);
  } catch {
    return null;
  }
}

/**
 * The day in what yt-dlp answers; nightly releases add a time to it.
 * @param {string} text
 */
export function parseVersion(text) {
  return /^\d{4}\.\d{2}\.\d{2}(?=[.\s]|$)/.exec(text.trim())?.[0] ?? null;
}
