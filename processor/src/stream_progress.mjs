// One number for the download of several streams, weighted by their bytes.

// Kilobits per second that a stream is taken to have when nothing at all is known about its size.
/** @type {Record<string, number>} */
const assumedRate = { video: 2_500, audio: 128, subtitle: 1 };

/** @typedef {{ id: string, rate: number, declared: number | null, exact: number | null, estimate: number | null,
 *   fraction: number }} Stream */

export class StreamProgress {
  /** @type {Stream[]} */
  #streams;

  /**
   * @param {{ id: string, format?: { tbr?: number, bytes?: number } }[]} streams in the order of their download
   * @param {number} [duration] seconds
   */
  constructor(streams, duration) {
    this.#streams = streams.map(({ id, format = {} }) => ({
      id,
      rate: format.tbr || assumedRate[id],
      declared: declaredBytes(format, duration),
      exact: null,
      estimate: null,
      fraction: 0,
    }));
  }

  /**
   * Takes one report of yt-dlp.
   * @param {import('./ytdlp.mjs').ProgressReport} report
   */
  update({ id, finished, done, total, estimate }) {
    const stream = this.#streams.find((candidate) => candidate.id === id);
    if (!stream) return;
    stream.exact = total ?? stream.exact;
    stream.estimate = estimate ?? stream.estimate;
    const whole = total ?? estimate ?? stream.declared ?? 0;
    const fraction = finished ? 1 : whole > 0 ? Math.min(1, (done ?? 0) / whole) : 0;
    stream.fraction = Math.max(stream.fraction, fraction);
  }

  get allFinished() {
    return this.#streams.every((stream) => stream.fraction >= 1);
  }

  /** From 0 to 1. */
  get fraction() {
    const weights = this.#streams.map((stream) => this.#bytesOf(stream));
    const sum = weights.reduce((total, weight) => total + weight, 0);
    return this.#streams.reduce((total, stream, index) => total + stream.fraction * (weights[index] / sum), 0);
  }

  /** @param {Stream} stream */
  #bytesOf(stream) {
    const own = knownBytes(stream);
    if (own) return own;
    // A sibling of known size tells what a kilobit per second amounts to in this medium.
    const sibling = this.#streams.find(knownBytes);
    return sibling ? (knownBytes(sibling) / sibling.rate) * stream.rate : stream.rate;
  }
}

/** @param {Stream} stream */
function knownBytes({ exact, declared, estimate }) {
  return exact || declared || estimate || 0;
}

/** @param {{ tbr?: number, bytes?: number }} format @param {number | undefined} duration */
function declaredBytes({ bytes, tbr }, duration) {
  if (bytes) return bytes;
  return tbr && duration ? (tbr * 1000 * duration) / 8 : null;
}
