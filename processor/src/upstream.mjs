// Ways to a host of the internet: directly, or through the proxy that the user has set for this machine.

import { execFile } from 'node:child_process';
import dns from 'node:dns';
import http from 'node:http';
import https from 'node:https';
import net from 'node:net';
import { promisify } from 'node:util';

import { isPublic } from './addresses.mjs';

const connectLimitMs = 20_000;
const socksPort = 1080;

/**
 * How this machine reaches the network.
 * @typedef {{ proxy?: string, sourceAddress?: string, family?: 0 | 4 | 6 }} Network
 */

/** Why a connection was not made: it leads to this machine or its own network. */
export class PrivateAddress extends Error {}

/**
 * The proxy to a host, or null: from the helper's own settings, else the environment, else the settings of macOS.
 * @param {string} host
 * @param {Network} network
 * @param {NodeJS.ProcessEnv} env
 * @returns {Promise<URL | null>}
 */
export async function findProxy(host, network, env) {
  if (network.proxy !== undefined) return readProxy(network.proxy);
  const names = ['https_proxy', 'HTTPS_PROXY', 'all_proxy', 'ALL_PROXY', 'http_proxy'];
  const given = names.map((name) => env[name]).find(Boolean);
  if (given) return isExempt(host, env.no_proxy ?? env.NO_PROXY ?? '') ? null : readProxy(given);
  if (process.platform !== 'darwin') return null;
  const { stdout } = await promisify(execFile)('/usr/sbin/scutil', ['--proxy']).catch(() => ({ stdout: '' }));
  return readSystemProxy(stdout, host);
}

/**
 * The same from what macOS says about its proxies.
 * @param {string} text
 * @param {string} host
 */
export function readSystemProxy(text, host) {
  /** @param {string} name */
  const value = (name) => new RegExp(`^\\s*${name} : (.*)$`, 'm').exec(text)?.[1];
  const [, exceptions = ''] = /ExceptionsList : <array> \{([^}]*)\}/.exec(text) ?? [];
  const exempt = exceptions.replace(/^\s*\d+ : /gm, '').replaceAll('*.', '.').split('\n');
  if (isExempt(host, exempt.join(','))) return null;
  const [kind] = ['HTTPS', 'HTTP', 'SOCKS'].filter((name) => value(`${name}Enable`) === '1');
  if (!kind) return null;
  return readProxy(`${kind === 'SOCKS' ? 'socks5' : 'http'}://${value(`${kind}Proxy`)}:${value(`${kind}Port`)}`);
}

/**
 * Connects to a host that must be public unless `trusted`. Through a proxy the name is left to the proxy, which may
 * be there to keep it from everybody else; only an address can be judged then.
 * @param {{ host: string, port: number, trusted: boolean }} target
 * @param {Network} network
 * @param {URL | null} proxy
 * @returns {Promise<net.Socket>}
 */
export async function dial({ host, port, trusted }, network, proxy) {
  const isLocalName = /(^|\.)localhost\.?$/i.test(host);
  if (!trusted && (isLocalName || (net.isIP(host) && !isPublic(host)))) throw new PrivateAddress();
  if (!proxy) {
    const { sourceAddress: localAddress, family } = network;
    return connect({ host, port, localAddress, family, lookup: trusted ? undefined : lookupPublic });
  }
  if (proxy.protocol.startsWith('socks')) return throughSocks(proxy, host, port);
  return throughHttp(proxy, host, port);
}

/** @param {net.TcpSocketConnectOpts} options @returns {Promise<net.Socket>} */
function connect(options) {
  return new Promise((resolve, reject) => {
    // Addresses that do not answer must not keep those that do from being tried.
    const socket = net.connect({ ...options, autoSelectFamily: true });
    const onTimeout = () => socket.destroy(Object.assign(new Error('no answer'), { code: 'ETIMEDOUT' }));
    socket.setTimeout(connectLimitMs, onTimeout);
    socket.once('error', reject);
    socket.once('connect', () => {
      socket.setTimeout(0);
      socket.off('timeout', onTimeout);
      socket.off('error', reject);
      resolve(socket);
    });
  });
}

/** @type {net.LookupFunction} */
function lookupPublic(host, options, done) {
  dns.lookup(host, { ...options, all: true }, (error, addresses) => {
    if (error) return done(error, []);
    const found = addresses.filter(({ address }) => isPublic(address));
    if (found.length === 0) return done(new PrivateAddress(), []);
    return options.all ? done(null, found) : done(null, found[0].address, found[0].family);
  });
}

/** @param {URL} proxy @param {string} host @param {number} port @returns {Promise<net.Socket>} */
function throughHttp(proxy, host, port) {
  const authority = `${net.isIPv6(host) ? `[${host}]` : host}:${port}`;
  const { request } = proxy.protocol === 'https:' ? https : http;
  return new Promise((resolve, reject) => {
    const asked = request({
      host: proxy.hostname.replace(/^\[|\]$/g, ''),
      port: proxy.port || (proxy.protocol === 'https:' ? 443 : 80),
      method: 'CONNECT',
      path: authority,
      headers: { Host: authority, ...credentials(proxy) },
      timeout: connectLimitMs,
      agent: false,
    });
    asked.once('timeout', () => asked.destroy(new Error('the proxy does not answer')));
    asked.on('error', reject);
    asked.once('response', ({ statusCode }) => reject(new Error(`the proxy answers ${statusCode}`)));
    asked.once('connect', ({ statusCode }, socket, head) => {
      if (statusCode !== 200) {
        socket.destroy();
        return reject(new Error(`the proxy answers ${statusCode}`));
      }
      socket.setTimeout(0);
      if (head.length > 0) socket.unshift(head);
      return resolve(/** @type {net.Socket} */ (socket));
    });
    asked.end();
  });
}

// RFC 1928 and 1929: greeting, perhaps name and password, and the wish to be connected.
/** @param {URL} proxy @param {string} host @param {number} port */
async function throughSocks(proxy, host, port) {
  const socket = await connect({ host: proxy.hostname.replace(/^\[|\]$/g, ''), port: Number(proxy.port || socksPort) });
  try {
    const [user, password] = [proxy.username, proxy.password].map((text) => Buffer.from(decodeURIComponent(text)));
    const named = user.length > 0;
    socket.write(Buffer.from([5, 1, named ? 2 : 0]));
    if ((await receive(socket, 2))[1] !== (named ? 2 : 0)) throw new Error('the proxy wants another login');
    if (named) {
      socket.write(Buffer.concat([Buffer.from([1, user.length]), user, Buffer.from([password.length]), password]));
      if ((await receive(socket, 2))[1] !== 0) throw new Error('the proxy refuses the login');
    }
    const name = Buffer.from(host);
    socket.write(Buffer.concat([Buffer.from([5, 1, 0, 3, name.length]), name, Buffer.from([port >> 8, port & 255])]));
    const [, state, , kind] = await receive(socket, 4);
    if (state !== 0) throw new Error(`the proxy cannot reach the site (${state})`);
    const length = kind === 1 ? 4 : kind === 4 ? 16 : (await receive(socket, 1))[0];
    await receive(socket, length + 2);
    return socket;
  } catch (error) {
    socket.destroy();
    throw error;
  }
}

/** @param {net.Socket} socket @param {number} count @returns {Promise<Buffer>} */
function receive(socket, count) {
  return new Promise((resolve, reject) => {
    const settle = () => {
      clearTimeout(timer);
      socket.off('readable', read).off('end', fail).off('error', fail);
    };
    const fail = (/** @type {Error | undefined} */ error) => {
      settle();
      reject(error ?? new Error('the proxy went away'));
    };
    const read = () => {
      const bytes = socket.read(count);
      if (bytes === null) return;
      settle();
      resolve(bytes);
    };
    const timer = setTimeout(() => fail(new Error('the proxy does not answer')), connectLimitMs);
    socket.on('readable', read).once('end', fail).once('error', fail);
    read();
  });
}

/** @param {URL} proxy @returns {Record<string, string>} */
function credentials({ username, password }) {
  if (!username) return {};
  const pair = `${decodeURIComponent(username)}:${decodeURIComponent(password)}`;
  return { 'Proxy-Authorization': `Basic ${Buffer.from(pair).toString('base64')}` };
}

/** @param {string} text @returns {URL | null} */
function readProxy(text) {
  if (text === '') return null;
  const url = new URL(/^[a-z0-9]+:\/\//i.test(text) ? text : `http://${text}`);
  if (!['http:', 'https:', 'socks:', 'socks5:', 'socks5h:'].includes(url.protocol)) {
    throw new Error(`a proxy of the kind ${url.protocol.slice(0, -1)} cannot be used`);
  }
  return url;
}

/** @param {string} host @param {string} list names and ends of names, separated by commas */
function isExempt(host, list) {
  const names = list.split(',').map((name) => name.trim().toLowerCase().replace(/^\./, '')).filter(Boolean);
  return names.some((name) => name === '*' || host === name || host.endsWith(`.${name}`));
}
