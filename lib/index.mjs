import brivonjs from './index.js';

export const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = brivonjs;
export default brivonjs;
