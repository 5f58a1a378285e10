// Which qualities a medium offers and which of its streams are taken for an output.

/** The formats that can be downloaded and played: no picture boards, nothing under copy protection. */
export function usableFormats(info) {
  const formats = Array.isArray(info.formats) ? info.formats : [];
  return formats.filter((format) => format.has_drm !== true && format.protocol !== 'mhtml' && format.ext !== 'mhtml');
}

export function hasPicture(format) {
  return format.vcodec !== 'none' && Number.isInteger(format.height) && format.height > 0;
}

export function hasSound(format) {
  return format.acodec !== 'none';
}

export function qualityOf(format) {
  return `${format.height}p`;
}

/** The offered qualities, best first, each once. */
export function qualitiesOf(info) {
  const heights = usableFormats(info).filter(hasPicture).map((format) => format.height);
  return [...new Set(heights)].sort((a, b) => b - a).map((height) => `${height}p`);
}

/** { video, audio } for a quality, where audio is null when the video brings its sound or none exists; or null. */
export function chooseForVideo(info, quality) {
  const pictures = usableFormats(info).filter((format) => hasPicture(format) && qualityOf(format) === quality);
  const sounds = soundOnly(info);
  const video = best(pictures, (format) => [
    pictureRank(format.vcodec),
    format.dynamic_range && format.dynamic_range !== 'SDR' ? 0 : 1,
    format.ext === 'mp4' ? 1 : 0,
    hasSound(format) || sounds.length > 0 ? 1 : 0,
    number(format.language_preference),
    number(format.tbr),
  ]);
  if (!video) return null;
  const rank = isWebVideo(video.vcodec) ? webSoundRank : soundRank;
  return { video, audio: hasSound(video) ? null : bestSound(sounds, rank) };
}

/** The format whose sound is taken when only the sound is wanted, or null when there is none. */
export function chooseForAudio(info) {
  const pure = bestSound(soundOnly(info), soundRank);
  if (pure) return pure;
  const withPicture = usableFormats(info).filter((format) => hasSound(format) && format.vcodec !== 'none');
  // The picture is thrown away, so a small one is enough; the smallest often comes with poor sound.
  const enough = 480;
  return best(withPicture, (format) => [
    number(format.language_preference),
    number(format.abr),
    number(format.height) <= enough ? number(format.height) : -number(format.height),
    number(format.tbr),
  ]);
}

/** "h264", "hevc", "av1", "vp9", ... for the many names that one codec has; "" for an unknown one. */
export function codecFamily(codec) {
  const name = String(codec ?? '').toLowerCase();
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

export function isWebVideo(codec) {
  return ['vp8', 'vp9'].includes(codecFamily(codec));
}

function soundOnly(info) {
  return usableFormats(info).filter((format) => format.vcodec === 'none' && hasSound(format));
}

function bestSound(sounds, rank) {
  return best(sounds, (format) => [
    number(format.language_preference),
    rank(format.acodec),
    number(format.abr ?? format.tbr),
  ]);
}

// H.264 plays everywhere; a stream that does not name its codec almost always is H.264.
function pictureRank(codec) {
  const order = ['vp8', 'vp9', 'av1', 'hevc', '', 'h264'];
  return order.indexOf(codecFamily(codec));
}

function soundRank(codec) {
  const order = ['vorbis', 'opus', 'mp3', '', 'aac'];
  return order.indexOf(codecFamily(codec));
}

function webSoundRank(codec) {
  return ['vorbis', 'opus'].indexOf(codecFamily(codec));
}

function number(value) {
  return Number.isFinite(value) ? value : 0;
}

// The item with the greatest key, keys being compared from left to right; the first of equals; null of none.
function best(items, keyOf) {
  const isGreater = (a, b) => {
    const place = a.findIndex((value, index) => value !== b[index]);
    return place >= 0 && a[place] > b[place];
  };
  return items.reduce((chosen, item) => (chosen && !isGreater(keyOf(item), keyOf(chosen)) ? chosen : item), null);
}
