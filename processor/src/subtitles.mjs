// The subtitle tracks of a medium: what is offered, which one is recommended, which file of a track is fetched.

// What can be turned into VTT and SRT. Chats and overlay comments come as "subtitles" too, in formats of their own.
const convertible = ['vtt', 'srt', 'ass', 'ssa', 'ttml', 'dfxp'];
const trackLimit = 500;

/** { tracks, originalLanguage, recommendedSubtitleId } as the API answers them; the last two may be undefined. */
export function describeSubtitles(info) {
  const originalLanguage = findOriginalLanguage(info);
  const automatic = entriesOf(info.automatic_captions);
  const manual = entriesOf(info.subtitles);
  const tracks = [
    ...manual.map(([key, files]) => describe(key, files, false, sameLanguage(key, originalLanguage))),
    ...automatic.map(([key, files]) => describe(key, files, true, isOriginalCaption(key, automatic, originalLanguage))),
  ];
  // Original tracks come first; otherwise the site's order stays.
  const ordered = [...tracks.filter((track) => track.original), ...tracks.filter((track) => !track.original)];
  const offered = ordered.slice(0, trackLimit);
  return { tracks: offered, originalLanguage, recommendedSubtitleId: recommend(offered)?.id };
}

/** The files of the track with this identifier, best first for the wanted format; undefined when there is none. */
export function findTrack(info, id, format) {
  const [, kind, key] = /^(subtitle|automatic):(.*)$/s.exec(id) ?? [];
  const source = kind === 'automatic' ? info.automatic_captions : info.subtitles;
  const files = kind && entriesOf(source).find(([name]) => name === key)?.[1];
  if (!files) return undefined;
  const order = [format, ...convertible.filter((ext) => ext !== format)];
  return { language: languageOf(key), files: [...files].sort((a, b) => order.indexOf(a.ext) - order.indexOf(b.ext)) };
}

function entriesOf(group) {
  return Object.entries(group ?? {})
    .filter(([, files]) => Array.isArray(files))
    .map(([key, files]) => [key, files.filter((file) => convertible.includes(file?.ext))])
    .filter(([, files]) => files.length > 0);
}

function describe(key, files, automatic, original) {
  const language = languageOf(key);
  const given = files.map((file) => file.name).find((name) => typeof name === 'string' && name.trim() !== '');
  return {
    id: `${automatic ? 'automatic' : 'subtitle'}:${key}`,
    language,
    label: given?.trim() ?? languageName(language),
    automatic,
    original,
  };
}

// Some sites mark the transcript itself, as opposed to its translations, with this ending.
const transcriptEnding = '-orig';

function languageOf(key) {
  return key.endsWith(transcriptEnding) ? key.slice(0, -transcriptEnding.length) : key;
}

function languageName(code) {
  try {
    return new Intl.DisplayNames(['en'], { type: 'language' }).of(code) ?? code;
  } catch {
    return code;
  }
}

function isOriginalCaption(key, automatic, originalLanguage) {
  const isMarked = (name) => name.endsWith(transcriptEnding);
  if (automatic.some(([name]) => isMarked(name))) return isMarked(key);
  return sameLanguage(key, originalLanguage);
}

function findOriginalLanguage(info) {
  if (isCode(info.language)) return info.language;
  const transcript = Object.keys(info.automatic_captions ?? {}).find((key) => key.endsWith(transcriptEnding));
  if (transcript) return languageOf(transcript);
  const spoken = (info.formats ?? []).filter((format) => format.acodec !== 'none' && isCode(format.language));
  const preferred = spoken.find((format) => format.language_preference > 0);
  if (preferred) return preferred.language;
  const languages = new Set(spoken.map((format) => format.language));
  return languages.size === 1 ? [...languages][0] : undefined;
}

function isCode(value) {
  return typeof value === 'string' && /^[a-z]{2,8}(-[a-z0-9]{1,8})*$/i.test(value) && value !== 'und';
}

function sameLanguage(key, originalLanguage) {
  if (!originalLanguage) return false;
  const primary = (code) => code.toLowerCase().split(/[-_]/)[0];
  return primary(key) === primary(originalLanguage);
}

function recommend(tracks) {
  return (
    tracks.find((track) => track.original && !track.automatic) ??
    tracks.find((track) => track.original) ??
    tracks.find((track) => !track.automatic) ??
    tracks[0]
  );
}
