// The subtitle tracks of a medium: what is offered, which one is recommended, which file of a track is fetched.

/** @typedef {import('./medium.mjs').Medium} Medium */
/** @typedef {import('./medium.mjs').SubtitleFile} SubtitleFile */

/**
 * A track as the API answers it.
 * @typedef {{ id: string, language: string, label: string, automatic: boolean, original: boolean }} Track
 */

const trackLimit = 1_000;
// The kinds of file from which a track is taken, best first behind the wanted one.
const kinds = ['vtt', 'srt', 'ass', 'ssa', 'ttml', 'dfxp'];

/**
 * What the API answers about a medium's tracks.
 * @param {Medium} medium
 * @returns {{ tracks: Track[], originalLanguage?: string, recommendedSubtitleId?: string }}
 */
export function describeSubtitles(medium) {
  const originalLanguage = findOriginalLanguage(medium);
  const captions = [...medium.captions.keys()];
  const tracks = [
    ...[...medium.subtitles].map(([key, files]) => describe(key, files, false, sameLanguage(key, originalLanguage))),
    ...[...medium.captions].map(([key, files]) =>
      describe(key, files, true, isOriginalCaption(key, captions, originalLanguage)),
    ),
  ];
  // Original tracks come first; otherwise the site's order stays.
  const ordered = [...tracks.filter((track) => track.original), ...tracks.filter((track) => !track.original)];
  const offered = ordered.slice(0, trackLimit);
  return { tracks: offered, originalLanguage, recommendedSubtitleId: recommend(offered)?.id };
}

/**
 * The track with this identifier and its best file for the wanted format; undefined when there is none.
 * @param {Medium} medium
 * @param {string} id
 * @param {string} format
 * @returns {{ language: string, automatic: boolean, file: SubtitleFile } | undefined}
 */
export function findTrack(medium, id, format) {
  const [, kind, key = ''] = /^(subtitle|automatic):(.*)$/s.exec(id) ?? [];
  const automatic = kind === 'automatic';
  const files = kind && (automatic ? medium.captions : medium.subtitles).get(key);
  if (!files) return undefined;
  const order = [format, ...kinds.filter((ext) => ext !== format)];
  const [file] = [...files].sort((a, b) => order.indexOf(a.ext) - order.indexOf(b.ext));
  return { language: languageOf(key), automatic, file };
}

/** @param {string} key @param {SubtitleFile[]} files @param {boolean} automatic @param {boolean} original */
function describe(key, files, automatic, original) {
  const language = languageOf(key);
  const label = files.map((file) => file.name).find((name) => name !== '') ?? languageName(language);
  return { id: `${automatic ? 'automatic' : 'subtitle'}:${key}`, language, label, automatic, original };
}

// Some sites mark the transcript itself, as opposed to its translations, with this ending.
const transcriptEnding = '-orig';

/** @param {string} key */
function languageOf(key) {
  return key.endsWith(transcriptEnding) ? key.slice(0, -transcriptEnding.length) : key;
}

/** @param {string} code */
function languageName(code) {
  try {
    return new Intl.DisplayNames(['en'], { type: 'language' }).of(code) ?? code;
  } catch {
    return code;
  }
}

/** @param {string} key @param {string[]} captions @param {string | undefined} originalLanguage */
function isOriginalCaption(key, captions, originalLanguage) {
  /** @param {string} name */
  const isMarked = (name) => name.endsWith(transcriptEnding);
  return captions.some(isMarked) ? isMarked(key) : sameLanguage(key, originalLanguage);
}

/** @param {Medium} medium @returns {string | undefined} */
function findOriginalLanguage({ language, captions, formats }) {
  if (isCode(language)) return language;
  const transcript = [...captions.keys()].find((key) => key.endsWith(transcriptEnding));
  if (transcript) return languageOf(transcript);
  const spoken = formats.filter((format) => format.acodec !== 'none' && isCode(format.language));
  const preferred = spoken.find((format) => format.languagePreference > 0);
  if (preferred) return preferred.language;
  const languages = new Set(spoken.map((format) => format.language));
  return languages.size === 1 ? spoken[0].language : undefined;
}

/** @param {string} value */
function isCode(value) {
  return /^[a-z]{2,8}(-[a-z0-9]{1,8})*$/i.test(value) && value !== 'und';
}

/** @param {string} key @param {string | undefined} originalLanguage */
function sameLanguage(key, originalLanguage) {
  if (!originalLanguage) return false;
  /** @param {string} code */
  const primary = (code) => code.toLowerCase().split(/[-_]/)[0];
  return primary(key) === primary(originalLanguage);
}

/** @param {Track[]} tracks */
function recommend(tracks) {
  return (
    tracks.find((track) => track.original && !track.automatic) ??
    tracks.find((track) => track.original) ??
    tracks.find((track) => !track.automatic) ??
    tracks[0]
  );
}
