import * as client from './index.js';
export * from './index.js';
export default client;
