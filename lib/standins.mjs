import standins from './standins.js';

export const { messaging, control, SUITE_TYPE_PREFIX, TYPE_PREFIX, ERROR_TYPE } = standins;
export default standins;
