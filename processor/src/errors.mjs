// The failures that reach the user, each with a message that is ready to be shown.

/** A request that cannot be served; `status` is its HTTP status. */
export class RequestError extends Error {
  /**
   * @param {number} status
   * @param {string} message
   * @param {Record<string, string>} [headers] of the answer
   */
  constructor(status, message, headers = {}) {
    super(message);
    this.status = status;
    this.headers = headers;
  }
}

/** A job that cannot be completed. */
export class JobFailure extends Error {}

/** A job whose folder is no longer the one that was made for it. */
export class LostFolder extends JobFailure {
  constructor() {
    super("The helper's temporary folder was removed or replaced. Try again, or restart the helper.");
  }
}

/** The end of work that was cancelled. */
export class Cancelled extends Error {
  constructor() {
    super('The job was cancelled.');
  }
}
