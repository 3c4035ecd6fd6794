'use strict';

/**
 * A refusal that goes back to the caller as {"error": sentence} with an HTTP status. `extra` holds
 * further keys of the answer, such as the index of the citation that was refused; `headers` holds
 * HTTP headers that go with the status.
 */
class ApiError extends Error {
    constructor(status, message, extra = {}, headers = {}) {
        super(message);
        this.status = status;
        this.extra = extra;
        this.headers = headers;
    }
}

module.exports = { ApiError };
