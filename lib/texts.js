'use strict';

// Texts of the bus, and what they are made of.

const { TYPE_PREFIX } = require('./constants');

const withoutPrefix = (type) => (type.startsWith(TYPE_PREFIX) ? type.slice(TYPE_PREFIX.length) : type);

// The parts of {appId,appVersion,id}, in which nothing is quoted; undefined for any other text. An id has no comma; with
// more than two of them in the text it is open where the application id ends, and the version gets what follows.
function toEndpoint(text) {
    const [, appId, appVersion, id] = text.match(/^\{(.*?),(.*),([^,]*)\}$/s) ?? [];
    return id === undefined ? undefined : { appId, appVersion, id };
}

const fromEndpoint = ({ appId, appVersion, id }) => `{${appId},${appVersion},${id}}`;

module.exports = { fromEndpoint, toEndpoint, withoutPrefix };
