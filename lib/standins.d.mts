import * as standins from './standins.js';
export * from './standins.js';
export default standins;
