// The failures that reach the user, each with a message that is ready to be shown.

/** A request that cannot be served; `status` is its HTTP status. */
export class RequestError extends Error {
  constructor(status, message, headers = {}) {
    super(message);
    this.status = status;
    this.headers = headers;
  }
}

/** A job that cannot be completed. */
export class JobFailure extends Error {}

/** The end of work that was cancelled. */
export class Cancelled extends Error {
  constructor() {
    super('The job was cancelled.');
  }
}
