// What a command may take. A shape looks at one value of a payload and returns what the command gets to see, or
// undefined when the value is not acceptable. Fields that nobody asks for are ignored.

// An id in a user's, a peer's or a channel's place: one to 64 of these characters.
const ID = /^[a-zA-Z0-9!#$%&()+\-:;<=.>?@[\]\\^_{}|~,\s]{1,64}$/;

const MOST_LIST_ITEMS = 10_000;
const MOST_MESSAGE_BYTES = 32768;
const MOST_INFO_BYTES = 8192;

export function isObject(value) {
  return typeof value === 'object' && value !== null && !Array.isArray(value) && !Buffer.isBuffer(value);
}

export const text = (value) => (typeof value === 'string' ? value : undefined);
export const id = (value) => (typeof value === 'string' && ID.test(value) ? value : undefined);
export const integer = (value) => (Number.isInteger(value) ? value : undefined);

/** A list that is not empty becomes a Set: naming an item twice changes nothing. */
const setOf = (shape) => (value) => {
  const isGood = Array.isArray(value) && value.length > 0 && value.length <= MOST_LIST_ITEMS;
  return isGood && value.every((item) => shape(item) !== undefined) ? new Set(value) : undefined;
};

export const ids = setOf(id);
export const keys = setOf(text);

export const oneOf = (...choices) => (value) => (choices.includes(value) ? value : undefined);

/** A boolean inside an "option" dictionary; both the dictionary and the boolean may be left out. */
export const flag = (name) => (option = {}) => {
  if (!isObject(option)) return undefined;
  const value = option[name] ?? false;
  return typeof value === 'boolean' ? value : undefined;
};

/** Attributes become a Map: their keys are the client's, and a plain object has keys of its own ("__proto__"). */
export function attributes(value) {
  if (!isObject(value)) return undefined;
  const entries = Object.entries(value);
  return entries.length > 0 && entries.every(([, item]) => typeof item === 'string') ? new Map(entries) : undefined;
}

/** The content of a message: a text, bytes, or both. Absent parts are left out of what the receiver gets. */
export function content(value) {
  if (!isObject(value)) return undefined;
  const message = {};
  if (typeof value.text === 'string') message.text = value.text;
  else if (value.text != null) return undefined;
  if (Buffer.isBuffer(value.binary)) message.binary = value.binary;
  else if (value.binary != null) return undefined;
  return 'text' in message || 'binary' in message ? message : undefined;
}

/** Text and bytes of a message may each have the full length. */
export function isTooLong({ text = '', binary = '' }) {
  return Buffer.byteLength(text) > MOST_MESSAGE_BYTES || binary.length > MOST_MESSAGE_BYTES;
}

const info = (value) => {
  const string = value ?? '';
  return typeof string === 'string' && Buffer.byteLength(string) <= MOST_INFO_BYTES ? string : undefined;
};

const invitationFields = { inviter: id, invitee: id, requestInfo: info, responseInfo: info };
export const invitation = (value) => readPayload(invitationFields, value);

/** Reads the fields named in `takes` from a payload; undefined when one of them is not acceptable. */
export function readPayload(takes, payload) {
  if (!isObject(payload)) return undefined;
  const read = {};
  for (const [field, shape] of Object.entries(takes)) {
    const value = shape(payload[field]);
    if (value === undefined) return undefined;
    read[field] = value;
  }
  return read;
}
