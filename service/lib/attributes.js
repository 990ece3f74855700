// The ways to change a set of attributes. Channels and users have the same four, under names of their own.

import { attributes, keys } from './shapes.js';

/** Each takes a field of the payload and makes the new Map from it and the present one, which stays as it is. */
export const replace = { how: 'replace', takes: { attributes }, apply: (present, { attributes }) => attributes };

export const merge = {
  how: 'merge',
  takes: { attributes },
  apply: (present, { attributes }) => new Map([...present, ...attributes]),
};

export const removeKeys = {
  how: 'removeKeys',
  takes: { attributeKeys: keys },
  apply(present, { attributeKeys }) {
    const rest = new Map(present);
    for (const key of attributeKeys) rest.delete(key);
    return rest;
  },
};

export const clear = { how: 'clear', takes: {}, apply: () => new Map() };

/** Whether a channel or user may have these attributes. */
export function areWithin({ attributesPerOwner, attributeBytesPerOwner }, attributes) {
  if (attributes.size > attributesPerOwner) return false;
  let bytes = 0;
  for (const [key, value] of attributes) bytes += Buffer.byteLength(key) + Buffer.byteLength(value);
  return bytes <= attributeBytesPerOwner;
}

/** The attributes in wire form: all, or those whose keys are in a Set. */
export function toWire(attributes, keys) {
  return Object.fromEntries(keys ? [...attributes].filter(([key]) => keys.has(key)) : attributes);
}
