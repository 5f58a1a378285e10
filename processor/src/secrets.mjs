// Random identifiers and the comparison of the session token.

import { createHash, randomBytes, timingSafeEqual } from 'node:crypto';

const secretBytes = 32;

/** The session token of one run: 256 random bits, safe in a header. */
export function newToken() {
  return randomBytes(secretBytes).toString('base64url');
}

/** A job identifier. It alone gives access to the job's result, so it is as hard to guess as the token. */
export function newJobId() {
  return randomBytes(secretBytes).toString('base64url');
}

/**
 * Compares in a time that depends neither on where the texts differ nor on the length of the candidate.
 * @param {string} candidate
 * @param {string} secret
 */
export function sameSecret(candidate, secret) {
  const digest = (/** @type {string} */ text) => createHash('sha256').update(text).digest();
  return timingSafeEqual(digest(candidate), digest(secret));
}
