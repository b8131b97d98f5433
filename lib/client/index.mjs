import client from './index.js';

export const { applications, connect, ERROR_TYPE, launch, TYPE_PREFIX } = client;
export default client;
