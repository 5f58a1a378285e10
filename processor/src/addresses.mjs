// Which addresses of the internet protocol are everybody's, and which belong to this machine or its own network.

import { BlockList, isIP } from 'node:net';

// 198.18.0.0/15 is not among them: programs that route all traffic through a tunnel answer names with it.
/** @type {[string, number, 'ipv4' | 'ipv6'][]} */
const ownNetworks = [
  ['0.0.0.0', 8, 'ipv4'],
  ['10.0.0.0', 8, 'ipv4'],
  ['100.64.0.0', 10, 'ipv4'],
  ['127.0.0.0', 8, 'ipv4'],
  ['169.254.0.0', 16, 'ipv4'],
  ['172.16.0.0', 12, 'ipv4'],
  ['192.0.0.0', 24, 'ipv4'],
  ['192.168.0.0', 16, 'ipv4'],
  ['224.0.0.0', 4, 'ipv4'],
  ['240.0.0.0', 4, 'ipv4'],
  ['::', 96, 'ipv6'],
  ['fc00::', 7, 'ipv6'],
  ['fe80::', 10, 'ipv6'],
  ['fec0::', 10, 'ipv6'],
  ['ff00::', 8, 'ipv6'],
];
// An address of the older protocol inside one of the newer, as translators at the border of a network reach it.
const translated = /^64:ff9b::([0-9a-f]{1,4}):([0-9a-f]{1,4})$/;

const own = new BlockList();
for (const [address, prefix, family] of ownNetworks) own.addSubnet(address, prefix, family);

/**
 * Whether a literal address is public. The list knows IPv4 addresses that are written as IPv6 ones, too.
 * @param {string} address
 */
export function isPublic(address) {
  const family = isIP(address);
  if (family === 4) return !own.check(address, 'ipv4');
  if (family !== 6) return false;
  const canonical = new URL(`https://[${address.replace(/%.*$/, '')}]`).hostname.slice(1, -1);
  const [, high, low] = translated.exec(canonical) ?? [];
  if (high) return isPublic(dotted((parseInt(high, 16) << 16) | parseInt(low, 16)));
  return !own.check(canonical, 'ipv6');
}

/** @param {number} bits */
function dotted(bits) {
  return [24, 16, 8, 0].map((shift) => (bits >>> shift) & 255).join('.');
}
