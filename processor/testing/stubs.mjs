// Small programs that stand in for yt-dlp, ffmpeg and ffprobe where a test needs them to misbehave or to be slow.
// They follow a scenario, which is one JSON file beside them.

import { chmod, mkdir, readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';

const preamble = `#!${process.execPath}
const fs = require('fs');
const path = require('path');
const { spawn } = require('child_process');
const args = process.argv.slice(2);
const here = __dirname;
const scenario = JSON.parse(fs.readFileSync(path.join(here, 'scenario.json'), 'utf8'));
const say = (line) => fs.writeSync(1, line + '\\n');
const note = (name, value) => fs.appendFileSync(path.join(here, name), JSON.stringify(value) + '\\n');
const sleep = (ms) => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, ms);
// Stays for good, with a grandchild that stays too; both deaf to every polite request when asked for.
function hang(isDeaf) {
  const script = (isDeaf ? "trap '' TERM INT; " : '') + 'while :; do sleep 1; done';
  const child = spawn('/bin/sh', ['-c', script], { stdio: 'ignore' });
  note('hanging', { pid: process.pid, child: child.pid });
  if (isDeaf) for (const signal of ['SIGTERM', 'SIGINT']) process.on(signal, () => {});
  setInterval(() => {}, 1000);
}
function fail(text) {
  fs.writeSync(2, text + '\\n');
  process.exit(1);
}
`;

const ytDlp = `${preamble}
if (args.includes('--version')) {
  note('versions', args);
  say(scenario.version || '2025.01.15');
  process.exit(0);
}
note('calls', { args, env: process.env, cwd: process.cwd() });
const after = (option) => args[args.indexOf(option) + 1];
if (args.includes('--dump-single-json')) {
  if (scenario.inspectError) fail(scenario.inspectError);
  if (scenario.leavesChild) {
    const child = spawn('/bin/sleep', ['1000'], { stdio: 'ignore' });
    note('hanging', { child: child.pid });
    child.unref();
  }
  while (scenario.inspectWaits && !fs.existsSync(path.join(here, 'go-on'))) sleep(20);
  if (scenario.inspectHangs) hang(scenario.deaf);
  else say(JSON.stringify((scenario.infos || {})[args.at(-1)] || scenario.info));
} else {
  download();
}
function download() {
  const info = JSON.parse(fs.readFileSync(after('--load-info-json'), 'utf8'));
  if (args.includes('--write-subs')) {
    const file = 'subtitle.track.' + info.subtitles.track[0].ext;
    fs.writeFileSync(file, scenario.subtitle);
    say('@file track ' + JSON.stringify(file));
    return;
  }
  for (const id of after('--format').split(',')) {
    const file = id + '.mp4';
    const part = file + '.part';
    fs.writeFileSync(part, 'some bytes');
    for (const report of scenario.reports[id]) {
      say('@progress ' + id + ' ' + JSON.stringify({ status: 'downloading', ...report }));
      sleep(scenario.pauseMs || 0);
    }
    if (scenario.failsOnce && !fs.existsSync(path.join(here, 'failed'))) {
      fs.writeFileSync(path.join(here, 'failed'), '');
      fail(scenario.failsOnce);
    }
    if (scenario.downloadError) fail(scenario.downloadError);
    if (scenario.downloadHangs) return hang(scenario.deaf);
    fs.renameSync(part, file);
    say('@progress ' + id + ' ' + JSON.stringify({ ...scenario.reports[id].at(-1), status: 'finished' }));
    say('@file ' + id + ' ' + JSON.stringify(file));
  }
}
`;

const ffmpeg = `${preamble}
note('ffmpeg-calls', { args });
if (scenario.convertError) fail(scenario.convertError);
for (const microseconds of scenario.convertReports || []) {
  say('out_time_us=' + microseconds);
  sleep(scenario.pauseMs || 0);
}
const output = args.at(-1);
fs.writeFileSync(output, '');
fs.truncateSync(output, scenario.resultBytes === undefined ? 1000 : scenario.resultBytes);
`;

const ffprobe = `${preamble}
const measured = args.at(-1);
if (scenario.measureFails) fail('no such stream');
if (fs.existsSync(measured) && fs.statSync(measured).size === 0) fail('Invalid data found');
say(JSON.stringify(scenario.measured || {
  format: { duration: '10.0' },
  streams: [
    { codec_type: 'video', codec_name: 'h264', height: 480 },
    { codec_type: 'audio', codec_name: 'aac' },
  ],
}));
`;

const site = 'https://media.example';
const subtitle = 'WEBVTT\n\n00:00:00.000 --> 00:00:01.000\nHello\n';

/** A medium with a separate picture of 900 bytes and a sound of 100 bytes. */
export const plainInfo = {
  _type: 'video',
  title: 'A clip',
  duration: 10,
  webpage_url: `${site}/clip`,
  formats: [
    { format_id: '7', url: `${site}/v`, ext: 'mp4', vcodec: 'avc1', acodec: 'none', height: 720, filesize: 900 },
    { format_id: '8', url: `${site}/a`, ext: 'm4a', vcodec: 'none', acodec: 'mp4a.40.2', filesize: 100 },
  ],
  subtitles: { en: [{ url: `${site}/s`, ext: 'vtt' }] },
};

/**
 * Writes the stubs into a folder and returns { env, lines(name), goOn() }; `lines` reads what they have noted, and
 * `goOn` ends the waiting of those that wait.
 */
export async function writeStubs(folder, scenario = {}) {
  const whole = { info: plainInfo, reports: { video: [], audio: [] }, subtitle, ...scenario };
  await mkdir(folder, { recursive: true });
  await writeFile(path.join(folder, 'scenario.json'), JSON.stringify(whole));
  const write = async (name, text) => {
    const file = path.join(folder, `${name}.cjs`);
    await writeFile(file, text);
    await chmod(file, 0o755);
    return file;
  };
  const env = {
    YT_DLP_PATH: await write('yt-dlp', ytDlp),
    FFMPEG_PATH: await write('ffmpeg', ffmpeg),
    FFPROBE_PATH: await write('ffprobe', ffprobe),
  };
  const lines = async (name) => {
    const text = await readFile(path.join(folder, name), 'utf8').catch(() => '');
    return text.split('\n').filter(Boolean).map((line) => JSON.parse(line));
  };
  const goOn = () => writeFile(path.join(folder, 'go-on'), '');
  return { env, lines, goOn };
}
