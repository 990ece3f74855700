// What the configuration file may say: who may log in, and how much the service keeps.

import { readFileSync } from 'node:fs';
import { isObject } from './shapes.js';

const DEFAULT_LIMITS = {
  channelsPerUser: 1000,
  membersPerChannel: 10_000,
  subscriptionsPerUser: 10_000,
  attributesPerOwner: 256,
  attributeBytesPerOwner: 65_536,
  offlineMessagesPerUser: 200,
};

const isText = (value) => typeof value === 'string';
const isCount = (value) => Number.isSafeInteger(value) && value >= 0;
const listOfTexts = (value) => Array.isArray(value) && value.every(isText);
const objectOf = (isGood) => (value) => isObject(value) && Object.values(value).every(isGood);

const FIELDS = {
  users: { isGood: objectOf(isText), wants: 'an object {"USER ID": "TOKEN"}' },
  apps: { isGood: listOfTexts, wants: 'an array of app ids' },
  forbiddenApps: { isGood: listOfTexts, wants: 'an array of app ids' },
  expiredTokens: { isGood: listOfTexts, wants: 'an array of tokens' },
  limits: { isGood: objectOf(isCount), wants: 'an object of whole numbers' },
};

/** Reads a configuration; throws an Error that says what is wrong with it. */
export function readConfig(file) {
  const config = JSON.parse(readFileSync(file, 'utf8'));
  if (!isObject(config)) throw new Error('the file must hold one JSON object');
  for (const [name, value] of Object.entries(config)) {
    if (!Object.hasOwn(FIELDS, name)) throw new Error(`"${name}" is not a known field`);
    if (!FIELDS[name].isGood(value)) throw new Error(`"${name}" must be ${FIELDS[name].wants}`);
  }
  for (const name of Object.keys(config.limits ?? {})) {
    if (!Object.hasOwn(DEFAULT_LIMITS, name)) throw new Error(`"limits" has no "${name}"`);
  }
  return config;
}

/** A configuration in the form in which the service asks it. A list that is absent restricts nothing. */
export function prepareConfig({ users, apps, forbiddenApps = [], expiredTokens = [], limits = {} }) {
  return {
    users: users && new Map(Object.entries(users)),
    apps: apps && new Set(apps),
    forbiddenApps: new Set(forbiddenApps),
    expiredTokens: new Set(expiredTokens),
    limits: { ...DEFAULT_LIMITS, ...limits },
  };
}
