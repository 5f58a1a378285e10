// A local HTTPS server with a certificate of its own that offers a short clip: as a list of streams in two qualities
// with a subtitle track, as pictures with a separate sound, and as plain files. One more list never comes to its end.

import { execFile } from 'node:child_process';
import { mkdir, readFile, rename, writeFile } from 'node:fs/promises';
import { createReadStream } from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import path from 'node:path';
import { promisify } from 'node:util';

import { readConfig } from '../src/config.mjs';

const run = promisify(execFile);

const { ytDlp, ffmpeg, ffprobe } = readConfig(process.env);
/** The machine's own tools. */
export const tools = { ytDlp, ffmpeg, ffprobe };
export const clipSeconds = 4;

const firstCue = '00:00:00.000 --> 00:00:02.000\nHello there\n';
const secondCue = '00:00:02.000 --> 00:00:04.000\nGrüße und Küsse\n';
const vtt = `WEBVTT\n\n${firstCue}\n${secondCue}`;
const closing = '#EXT-X-ENDLIST\n';
const opening = '#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXT-X-VERSION:3\n#EXT-X-PLAYLIST-TYPE:VOD\n';
const subtitleList = `${opening}#EXTINF:4.0,\nen.vtt\n${closing}`;
const subtitleGroup = '#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="s",NAME="English"';
const subtitleEntry = `${subtitleGroup},LANGUAGE="en",DEFAULT=YES,URI="en.m3u8"\n`;

const types = {
  '.m3u8': 'application/vnd.apple.mpegurl',
  '.mp4': 'video/mp4',
  '.mkv': 'video/x-matroska',
  '.vtt': 'text/vtt',
};
const stuckEntry = '#EXT-X-STREAM-INF:BANDWIDTH=1000,RESOLUTION=320x180,CODECS="avc1.42c01e,mp4a.40.2"\n';
const stuckFile = 'stuck.ts';

/**
 * Makes the clip in `folder` and serves it; resolves to { base, home, close } where `home` holds the setting for the
 * certificate.
 */
export async function serveClip(folder) {
  const site = path.join(folder, 'site');
  await mkdir(site);
  await makeCertificate(folder);
  await makeStreams(site);
  const home = path.join(folder, 'home');
  await writeSettings(home);
  const server = https.createServer(
    { key: await readFile(path.join(folder, 'key.pem')), cert: await readFile(path.join(folder, 'cert.pem')) },
    (request, response) => serveFile(site, request, response),
  );
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const close = () => {
    server.close();
    server.closeAllConnections();
  };
  return { base: `https://127.0.0.1:${server.address().port}`, home, close };
}

/** Another server beside it, on HTTPS or plain HTTP, that only counts who comes by: { base, requests, close }. */
export async function serveStranger(folder, scheme) {
  const requests = [];
  const onRequest = (request, response) => {
    requests.push(request.url);
    response.writeHead(200, { 'Content-Type': 'video/mp4' }).end('secret');
  };
  const key = await readFile(path.join(folder, 'key.pem'));
  const cert = await readFile(path.join(folder, 'cert.pem'));
  const server = scheme === 'https' ? https.createServer({ key, cert }, onRequest) : http.createServer(onRequest);
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const close = () => {
    server.close();
    server.closeAllConnections();
  };
  return { base: `${scheme}://127.0.0.1:${server.address().port}`, requests, close };
}

/** What ffprobe says about a file: { format, duration, streams: { video: { codec, height }, audio: ... } }. */
export async function probeFile(file) {
  const entries = 'format=format_name,duration:stream=codec_type,codec_name,height';
  const args = ['-v', 'error', '-show_entries', entries, '-of', 'json', file];
  const { format, streams } = JSON.parse((await run(tools.ffprobe, args)).stdout);
  const byType = streams.map(({ codec_type, codec_name, height }) => [codec_type, { codec: codec_name, height }]);
  return { format: format.format_name, duration: Number(format.duration), streams: Object.fromEntries(byType) };
}

/** Lets yt-dlp accept any certificate where `home` is the user's. */
export async function writeSettings(home) {
  const settings = path.join(home, '.config', 'zunto-helper', 'yt-dlp.conf');
  await mkdir(path.dirname(settings), { recursive: true });
  await writeFile(settings, '--no-check-certificates\n');
}

/** Makes key.pem and cert.pem for 127.0.0.1 in `folder`. */
export async function makeCertificate(folder) {
  const target = ['-keyout', path.join(folder, 'key.pem'), '-out', path.join(folder, 'cert.pem')];
  const kind = ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2'];
  await run('openssl', [...kind, ...target, '-subj', '/CN=127.0.0.1', '-addext', 'subjectAltName=IP:127.0.0.1']);
}

async function makeStreams(site) {
  const sources = ['-f', 'lavfi', '-i', `testsrc2=size=640x360:rate=25:duration=${clipSeconds}`];
  const tone = ['-f', 'lavfi', '-i', `sine=frequency=440:duration=${clipSeconds}`];
  const coding = ['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-g', '50', '-c:a', 'aac'];
  const make = (args) => run(tools.ffmpeg, ['-v', 'error', '-y', ...args], { cwd: site });
  const lists = ['-f', 'hls', '-hls_time', '2', '-hls_playlist_type', 'vod'];
  const small = ['-filter_complex', '[0:v]split=2[a][b];[b]scale=320:180[c]'];
  const both = ['-map', '[a]', '-map', '1:a', '-map', '[c]', '-map', '1:a', '-var_stream_map', 'v:0,a:0 v:1,a:1'];
  const named = (name) => ['-hls_segment_filename', `${name}%v_%d.ts`, '-master_pl_name', `${name}-bare.m3u8`];
  await make([...sources, ...tone, ...small, ...coding, ...lists, ...both, ...named('clip'), 'clip%v.m3u8']);
  const apart = ['-map', '0:v', '-map', '1:a', '-var_stream_map', 'v:0,agroup:sound a:0,agroup:sound'];
  await make([...sources, ...tone, ...coding, ...lists, ...apart, ...named('apart'), 'apart%v.m3u8']);
  await rename(path.join(site, 'apart-bare.m3u8'), path.join(site, 'apart.m3u8'));
  await make([...sources, ...tone, ...coding, 'plain.mp4']);
  await make([...sources, ...tone, '-c:v', 'mjpeg', '-c:a', 'libmp3lame', 'odd.mkv']);
  await writeFile(path.join(site, 'en.vtt'), vtt);
  await writeFile(path.join(site, 'en.m3u8'), subtitleList);
  await writeFile(path.join(site, 'stuck.m3u8'), `#EXTM3U\n${stuckEntry}stuck-list.m3u8\n`);
  const stuckFiles = `clip0_0.ts\n#EXTINF:4.0,\n${stuckFile}`;
  await writeFile(path.join(site, 'stuck-list.m3u8'), subtitleList.replace('en.vtt', stuckFiles));
  const bare = await readFile(path.join(site, 'clip-bare.m3u8'), 'utf8');
  const withSubtitles = bare
    .replace('#EXT-X-STREAM-INF', `${subtitleEntry}#EXT-X-STREAM-INF`)
    .replaceAll(',CODECS', ',SUBTITLES="s",CODECS');
  await writeFile(path.join(site, 'größe.m3u8'), withSubtitles);
}

// "/led/NAME?to=ADDRESS" leads on to another address; "/list.m3u8?of=ADDRESS" is a list with that one segment.
function serveFile(site, request, response) {
  const { pathname, searchParams } = new URL(request.url, 'https://any');
  const name = path.basename(decodeURIComponent(pathname));
  if (searchParams.has('to')) return void response.writeHead(302, { Location: searchParams.get('to') }).end();
  if (searchParams.has('of')) {
    response.writeHead(200, { 'Content-Type': types['.m3u8'] });
    return void response.end(subtitleList.replace('en.vtt', searchParams.get('of')));
  }
  // A request for this file is never answered.
  if (name === stuckFile) return;
  const stream = createReadStream(path.join(site, name));
  stream.once('open', () => {
    response.writeHead(200, { 'Content-Type': types[path.extname(name)] ?? 'application/octet-stream' });
    if (request.method === 'HEAD') response.end();
    else stream.pipe(response);
  });
  stream.once('error', () => response.writeHead(404).end());
}
