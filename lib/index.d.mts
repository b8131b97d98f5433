import * as brivonjs from './index.js';
export * from './index.js';
export default brivonjs;
