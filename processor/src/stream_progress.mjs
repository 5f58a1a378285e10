// One number for the download of several streams, weighted by their bytes.

// Kilobits per second that a stream is taken to have when nothing at all is known about its size.
const assumedRate = { video: 2_500, audio: 128, subtitle: 1 };

export class StreamProgress {
  #streams;

  /** `streams`: { id, format }, in the order of their download; `duration` in seconds or undefined. */
  constructor(streams, duration) {
    this.#streams = streams.map(({ id, format }) => ({
      id,
      rate: format.tbr > 0 ? format.tbr : assumedRate[id],
      declared: declaredBytes(format, duration),
      exact: null,
      estimate: null,
      fraction: 0,
    }));
  }

  /** Takes one report of yt-dlp (see parseProgress). */
  update({ id, finished, done, total, estimate }) {
    const stream = this.#streams.find((candidate) => candidate.id === id);
    if (!stream) return;
    stream.exact = total ?? stream.exact;
    stream.estimate = estimate ?? stream.estimate;
    const whole = total ?? estimate ?? stream.declared;
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

  #bytesOf(stream) {
    const known = ({ exact, declared, estimate }) => exact || declared || estimate;
    const own = known(stream);
    if (own) return own;
    // A sibling of known size tells what a kilobit per second amounts to in this medium.
    const sibling = this.#streams.find(known);
    return sibling ? (known(sibling) / sibling.rate) * stream.rate : stream.rate;
  }
}

function declaredBytes(format, duration) {
  if (format.filesize > 0) return format.filesize;
  if (format.filesize_approx > 0) return format.filesize_approx;
  return format.tbr > 0 && duration > 0 ? (format.tbr * 1000 * duration) / 8 : null;
}
