// The local media processor: serves the loopback API, runs yt-dlp, ffmpeg and ffprobe for it, and never outlives
// the helper that started it. This file only puts the pieces together and decides when the program ends.

import { readConfig, findMissingTools } from './config.mjs';
import { createApi } from './api.mjs';
import { JobStore } from './jobs.mjs';
import { log } from './log.mjs';
import { Media } from './media.mjs';
import { watchParent } from './parent.mjs';
import { newToken } from './secrets.mjs';
import { readSettings } from './settings.mjs';
import { Tools } from './tools.mjs';
import { ytDlpVersionOf } from './versions.mjs';
import { Workspace } from './workspace.mjs';

// The helper sends SIGTERM two seconds after SIGINT; everything is over before that.
const shutdownLimitMs = 1_700;

/**
 * What has to be ended, as far as it exists.
 * @type {{ stopping: boolean, server?: import('node:http').Server, jobs?: JobStore, tools?: Tools,
 *     workspace?: Workspace }}
 */
const state = { stopping: false };

/**
 * @param {string} message
 * @returns {never}
 */
function fail(message) {
  log(`cannot start: ${message}`);
  process.exit(1);
}

/**
 * @param {string} reason
 * @param {number} exitCode
 */
async function shutDown(reason, exitCode) {
  if (state.stopping) return;
  state.stopping = true;
  const overdue = setTimeout(() => {
    state.tools?.killAllNow();
    state.workspace?.removeNow();
    log(`end: ${reason}, forced`);
    process.exit(exitCode);
  }, shutdownLimitMs);
  try {
    state.server?.close();
    state.server?.closeAllConnections();
    await state.jobs?.shutDown();
    await state.tools?.stopAll();
    await state.workspace?.remove();
  } catch (error) {
    log(`clean-up failed: ${error.message}`);
  }
  clearTimeout(overdue);
  log(`end: ${reason}`);
  process.exit(exitCode);
}

function installEndings() {
  for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.on(signal, () => shutDown(signal, 0));
  process.on('uncaughtException', (error) => {
    log(`internal error: ${error.stack ?? error}`);
    shutDown('internal error', 1);
  });
  // The log may vanish together with the helper; that must not keep the clean-up from happening.
  for (const stream of [process.stdout, process.stderr]) stream.on('error', () => {});
}

/**
 * @param {NodeJS.ErrnoException} error
 * @param {import('./config.mjs').Config} config
 */
function describeListenError(error, config) {
  const address = `${config.host}:${config.port}`;
  if (error.code === 'EADDRINUSE') return `port ${config.port} on ${config.host} is already in use`;
  return `cannot listen on ${address}: ${error.message}`;
}

function start() {
  installEndings();
  let config;
  try {
    config = readConfig(process.env);
  } catch (error) {
    fail(error.message);
  }

  const token = newToken();
  const workspace = (state.workspace = new Workspace(config.tempRoot, { log }));
  const tools = (state.tools = new Tools(workspace));
  const jobs = (state.jobs = new JobStore({ workspace, log }));
  const ytDlpVersion = ytDlpVersionOf(tools, config.ytDlp);
  const { settings, warnings } = readSettings(process.env);
  const media = new Media({ config, tools, settings, ytDlpVersion });
  const server = (state.server = createApi({ config, token, jobs, media, ytDlpVersion, log }));

  server.once('error', (error) => fail(describeListenError(error, config)));
  server.listen(config.port, config.host, () => {
    // The port decides who is the processor, so nothing on disk is touched before it is ours. All of this runs
    // before the first request can be read.
    server.removeAllListeners('error');
    server.on('error', (error) => log(`server error: ${error.message}`));
    try {
      workspace.open();
      tools.startGuard();
    } catch (error) {
      fail(error.message);
    }
    log(`start: listening on ${config.host}:${config.port}, pid ${process.pid}`);
    for (const warning of [...findMissingTools(config), ...warnings]) log(`warning: ${warning}`);
    workspace.removeAbandoned();
    ytDlpVersion().then((day) => log(day ? `yt-dlp is ${day}` : 'warning: the version of yt-dlp cannot be told'));
    if (config.parentPid !== null) watchParent(config.parentPid, () => shutDown('the helper is gone', 0));
  });
}

start();
