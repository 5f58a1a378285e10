// Whether the login of a browser may be used. Its cookies open the user's accounts, so they may reach no host but
// their own.

import { RequestError } from './errors.mjs';

// Older ones send the cookies to every host that a download touches, also where the connection is not encrypted.
const safeSince = '2023.07.06';

/**
 * Throws RequestError with what the user can do when the login of `browser` cannot be used.
 * @param {'chrome' | 'safari'} browser
 * @param {string | null} version of yt-dlp, or null when it is unknown
 * @param {string} platform
 */
export function refuseUnsafeLogin(browser, version, platform = process.platform) {
  if (browser === 'safari' && platform !== 'darwin') {
    throw new RequestError(400, 'Safari logins exist only on a Mac. Choose another access.');
  }
  if (version !== null && version >= safeSince) return;
  const found =
    version === null
      ? 'The version that is installed cannot be told.'
      : `The installed ${version} would show your login to other sites too.`;
  const advice = 'Update yt-dlp, or choose "Anonymous" under Access.';
  throw new RequestError(400, `Logins need yt-dlp ${safeSince} or newer. ${found} ${advice}`);
}
