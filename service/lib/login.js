// Who is connecting, and may he? The credentials are parameters of the connection: "app" names the product, "roomId" the
// app, and "token" is JSON text with the user's id, token and time stamps.

import { id, isObject } from './shapes.js';

const PRODUCT = 'brivel';
const TOKEN = /^\S{32}$/;

/** Reads the parameters and returns `appId` and `userId` as far as they are legible, and why the login is `refused`. */
export function readLogin(query, config) {
  const appId = query.roomId;
  const credentials = parseCredentials(query.token);
  const userId = id(credentials?.userId);
  return { appId, userId, refused: refusal(query.app, appId, userId, credentials, config) };
}

function refusal(product, appId, userId, credentials, config) {
  if (typeof appId !== 'string' || appId === '') return 'loginFail: InvalidAppId';
  if (config.apps && !config.apps.has(appId)) return 'loginFail: InvalidAppId';
  if (config.forbiddenApps.has(appId)) return 'loginFail: AppForbidden';
  if (product !== PRODUCT || !userId || !hasTimes(credentials)) return 'loginFail: InvalidArgument';
  const { token } = credentials;
  if (typeof token !== 'string' || !TOKEN.test(token)) return 'loginFail: InvalidToken';
  if (config.expiredTokens.has(token)) return 'loginFail: ExpiredToken';
  if (config.users && config.users.get(userId) !== token) return 'loginFail: AuthFail';
  return undefined;
}

// An older form of the credentials has no "connectTimeStamp".
function hasTimes({ timestamp, connectTimeStamp = 0 }) {
  return Number.isInteger(timestamp) && Number.isInteger(connectTimeStamp);
}

function parseCredentials(text) {
  try {
    const credentials = JSON.parse(text);
    return isObject(credentials) ? credentials : undefined;
  } catch {
    return undefined;
  }
}
