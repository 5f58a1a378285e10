// Which qualities a medium offers and which of its streams are taken for an output.

/** @typedef {import('./medium.mjs').Format} Format */
/** @typedef {import('./medium.mjs').Medium} Medium */

/** @param {Format} format */
export function hasPicture(format) {
  return format.vcodec !== 'none' && format.height !== undefined;
}

/** @param {Format} format */
export function hasSound(format) {
  return format.acodec !== 'none';
}

/** @param {Format} format */
export function qualityOf(format) {
  return `${format.height}p`;
}

/**
 * The offered qualities, best first, each once.
 * @param {Medium} medium
 */
export function qualitiesOf(medium) {
  const heights = medium.formats.filter(hasPicture).map((format) => format.height ?? 0);
  return [...new Set(heights)].sort((a, b) => b - a).map((height) => `${height}p`);
}

/**
 * The streams of a quality, where audio is null when the video brings its sound or none exists; null for a quality
 * that the medium lacks.
 * @param {Medium} medium
 * @param {string} quality
 * @returns {{ video: Format, audio: Format | null } | null}
 */
export function chooseForVideo(medium, quality) {
  const pictures = medium.formats.filter((format) => hasPicture(format) && qualityOf(format) === quality);
  const sounds = soundOnly(medium);
  const video = best(pictures, (format) => [
    format.preference,
    format.languagePreference,
    pictureRank(format.vcodec),
    format.dynamicRange && format.dynamicRange !== 'SDR' ? 0 : 1,
    format.ext === 'mp4' ? 1 : 0,
    hasSound(format) || sounds.length > 0 ? 1 : 0,
    format.sourcePreference,
    format.quality,
    format.tbr ?? 0,
  ]);
  if (!video) return null;
  const rank = isWebVideo(video.vcodec) ? webSoundRank : soundRank;
  return { video, audio: hasSound(video) ? null : bestSound(sounds, rank) };
}

/**
 * The format whose sound is taken when only the sound is wanted, or null when there is none.
 * @param {Medium} medium
 */
export function chooseForAudio(medium) {
  const pure = bestSound(soundOnly(medium), soundRank);
  if (pure) return pure;
  const withPicture = medium.formats.filter((format) => hasSound(format) && format.vcodec !== 'none');
  // The picture is thrown away, so a small one is enough; the smallest often comes with poor sound.
  const enough = 480;
  return best(withPicture, ({ preference, languagePreference, sourcePreference, abr = 0, height = 0, tbr = 0 }) => [
    preference,
    languagePreference,
    sourcePreference,
    abr,
    height <= enough ? height : -height,
    tbr,
  ]);
}

/**
 * "h264", "hevc", "av1", "vp9", ... for the many names that one codec has; "" for an unknown one.
 * @param {string | undefined} codec
 */
export function codecFamily(codec) {
  const name = String(codec ?? '').toLowerCase();
  /** @type {[RegExp, string][]} */
  const families = [
    [/^(avc|h264|x264)/, 'h264'],
    [/^(hev|hvc|h265|hevc|dvh)/, 'hevc'],
    [/^av0?1/, 'av1'],
    [/^vp0?9/, 'vp9'],
    [/^vp0?8/, 'vp8'],
    [/^(mp4a\.(6b|69|40\.34)|mp3)/, 'mp3'],
    [/^(mp4a|aac)/, 'aac'],
    [/^opus/, 'opus'],
    [/^vorbis/, 'vorbis'],
  ];
  return families.find(([pattern]) => pattern.test(name))?.[1] ?? name;
}

/** @param {string | undefined} codec */
export function isWebVideo(codec) {
  return ['vp8', 'vp9'].includes(codecFamily(codec));
}

/** @param {Medium} medium */
function soundOnly(medium) {
  return medium.formats.filter((format) => format.vcodec === 'none' && hasSound(format));
}

/** @param {Format[]} sounds @param {(codec: string) => number} rank */
function bestSound(sounds, rank) {
  return best(sounds, (format) => [
    format.preference,
    format.languagePreference,
    rank(format.acodec),
    format.sourcePreference,
    format.quality,
    format.abr ?? format.tbr ?? 0,
  ]);
}

// H.264 plays everywhere; a stream that does not name its codec almost always is H.264.
/** @param {string} codec */
function pictureRank(codec) {
  const order = ['vp8', 'vp9', 'av1', 'hevc', '', 'h264'];
  return order.indexOf(codecFamily(codec));
}

/** @param {string} codec */
function soundRank(codec) {
  const order = ['vorbis', 'opus', 'mp3', '', 'aac'];
  return order.indexOf(codecFamily(codec));
}

/** @param {string} codec */
function webSoundRank(codec) {
  return ['vorbis', 'opus'].indexOf(codecFamily(codec));
}

// The item with the greatest key, keys being compared from left to right. yt-dlp puts better formats last, so the
// last of equals is taken; null of none.
/** @param {Format[]} items @param {(item: Format) => number[]} keyOf @returns {Format | null} */
function best(items, keyOf) {
  /** @param {number[]} a @param {number[]} b */
  const isLess = (a, b) => {
    const place = a.findIndex((value, index) => value !== b[index]);
    return place >= 0 && a[place] < b[place];
  };
  /** @type {Format | null} */
  let chosen = null;
  for (const item of items) if (!chosen || !isLess(keyOf(item), keyOf(chosen))) chosen = item;
  return chosen;
}
