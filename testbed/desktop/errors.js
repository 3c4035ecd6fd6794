'use strict';

/**
 * A failure that is returned to the caller as {"error": message} with an HTTP status. `extra` holds
 * additional keys of the reply, such as the index of the rejected citation. `headers` holds
 * additional HTTP headers.
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
