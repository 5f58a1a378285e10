// How yt-dlp is called and how its answers are read. The user's own yt-dlp configuration stays in force on purpose
// (proxies and certificate settings live there); what would move or rename our files is overridden here.

const progressMark = '@progress ';
const progressFields = 'status,downloaded_bytes,total_bytes,total_bytes_estimate';
const messageLimit = 300;

const commonArguments = [
  '--no-playlist',
  '--no-progress',
  '--no-exec',
  '--no-download-archive',
  '--socket-timeout',
  '20',
];

/** Reads what a link leads to, as JSON on standard output. Of a playlist only the first entry is looked at. */
export function inspectArguments({ link, browserLogin }) {
  return [
    ...commonArguments,
    '--dump-single-json',
    '--playlist-items',
    '1',
    // The choice of format is ours; a preference in the user's configuration must not make the reading fail.
    '--format',
    'b*/bv*/ba*',
    ...cookieArguments(browserLogin),
    '--',
    link,
  ];
}

/** Downloads the formats of an information file, each into "<format id>.<extension>" in `folder`. */
export function streamArguments({ infoFile, folder, formatIds, browserLogin, ffmpeg }) {
  return [
    ...commonArguments,
    ...progressArguments(),
    '--load-info-json',
    infoFile,
    '--format',
    formatIds.join(','),
    '--concurrent-fragments',
    '4',
    '--ffmpeg-location',
    ffmpeg,
    '--output',
    `${escapeTemplate(folder)}/%(format_id)s.%(ext)s`,
    ...cookieArguments(browserLogin),
  ];
}

/** Downloads the only subtitle track of an information file as "subtitle.*.<format>" into `folder`. */
export function subtitleArguments({ infoFile, folder, format, browserLogin, ffmpeg }) {
  const target = `${escapeTemplate(folder)}/subtitle.%(ext)s`;
  return [
    ...commonArguments,
    ...progressArguments(),
    '--load-info-json',
    infoFile,
    '--skip-download',
    '--write-subs',
    '--sub-langs',
    'all',
    '--sub-format',
    'best',
    '--convert-subs',
    format,
    '--ffmpeg-location',
    ffmpeg,
    '--output',
    target,
    '--output',
    `subtitle:${target}`,
    ...cookieArguments(browserLogin),
  ];
}

/** { id, finished, done, total, estimate } of one progress line, numbers or null; null for any other line. */
export function parseProgress(line) {
  const start = line.indexOf(progressMark);
  if (start < 0) return null;
  const [, id, json] = /^(\S+) (\{.*\})/.exec(line.slice(start + progressMark.length)) ?? [];
  try {
    const fields = JSON.parse(json);
    return {
      id,
      finished: fields.status === 'finished',
      done: positive(fields.downloaded_bytes),
      total: positive(fields.total_bytes),
      estimate: positive(fields.total_bytes_estimate),
    };
  } catch {
    return null;
  }
}

/** The tool's own last error as a sentence for the user. */
export function readableError(stderr, { code, signal }, name = 'yt-dlp') {
  const lines = stripColours(stderr)
    .split(/[\r\n]+/)
    .map((line) => line.trim())
    .filter(Boolean);
  const errors = lines.filter((line) => /^(yt-dlp: )?error:/i.test(line));
  const last = errors.pop() ?? lines.filter((line) => !/^warning:/i.test(line)).pop();
  const sentence = last && polish(last);
  if (sentence) return sentence;
  return signal ? `${name} was ended by ${signal}.` : `${name} ended with status ${code} and gave no reason.`;
}

function progressArguments() {
  return [
    '--progress',
    '--newline',
    '--progress-template',
    `download:${progressMark}%(info.format_id)s %(progress.{${progressFields}})j`,
  ];
}

function cookieArguments(browserLogin) {
  return browserLogin ? ['--cookies-from-browser', browserLogin] : [];
}

function escapeTemplate(folder) {
  return folder.replaceAll('%', '%%');
}

function positive(value) {
  return Number.isFinite(value) && value >= 0 ? value : null;
}

function stripColours(text) {
  return text.replace(/\u001b\[[0-9;]*[A-Za-z]/g, '');
}

function polish(line) {
  const plain = line
    .replace(/^(yt-dlp: )?error:\s*/i, '')
    // The extractor's name and the identifier of the media mean nothing to the user.
    .replace(/^\[[^\]\s]+\]\s+(\S+: )?/, '')
    .replace(/;?\s*please report this issue on .*$/i, '')
    .replace(/\s*\(caused by .*$/, '')
    .replace(/<urlopen error (.*)>/, '$1')
    .replace(/\[SSL: [A-Z_]+\]\s*/g, '')
    .replace(/\[Errno -?\d+\]\s*/g, '')
    .replace(/\s*\(_ssl\.c:\d+\)/g, '')
    .trim();
  const sentences = plain.split(/(?<=[.!?])\s+/);
  // Advice on the options of a command line is of no use in a window.
  const useful = sentences.filter((text) => !/(^|\s)--?[a-z]/.test(text) && !/^(also )?see\b.*https?:/i.test(text));
  return asSentence((useful.length > 0 ? useful : sentences).join(' '));
}

function asSentence(text) {
  const characters = [...text.replace(/\s+/g, ' ').trim()];
  if (characters.length === 0) return '';
  const ending = characters.length > messageLimit ? '…' : '';
  const whole = characters.slice(0, messageLimit).join('') + ending;
  const sentence = whole[0].toUpperCase() + whole.slice(1);
  return /[.!?…]$/.test(sentence) ? sentence : `${sentence}.`;
}
