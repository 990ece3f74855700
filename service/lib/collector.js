// The collector of event reports: clients upload files of JSON lines. Checks each line, keeps the newest reports, and
// tells whoever watches of each.

import { EventEmitter } from 'node:events';
import { isObject } from './shapes.js';

export const COLLECT = '/pim/v1/collect-logan';

const MOST_BODY_BYTES = 64 * 1024 * 1024;
const MOST_LINE_CHARACTERS = 1024 * 1024;
const MOST_REPORTS = 5000;

const ENVELOPE = {
  logType: Number.isInteger,
  deviceId: (value) => typeof value === 'string' && /^[0-9a-f]{32}$/.test(value),
  os: (value) => typeof value === 'string',
  timestamp: Number.isInteger,
  encrypt: (value) => value === false,
  content: (value) => typeof value === 'string',
};

/** Reads one line; throws an Error that says what is wrong with it. */
export function readReport(line) {
  const envelope = parseObject(line, 'the line');
  const bad = Object.keys(ENVELOPE).find((field) => !ENVELOPE[field](envelope[field]));
  if (bad !== undefined) throw new Error(`"${bad}" is missing or not acceptable`);
  const event = parseObject(envelope.content, 'the content');
  if (typeof event.type !== 'string') throw new Error('the content has no type');
  return { deviceId: envelope.deviceId, timestamp: envelope.timestamp, event };
}

function parseObject(text, what) {
  let value;
  try {
    value = JSON.parse(text);
  } catch {
    throw new Error(`${what} is not JSON`);
  }
  if (!isObject(value)) throw new Error(`${what} is not an object`);
  return value;
}

export class Collector extends EventEmitter {
  #reports = []; // oldest first
  #received = 0;
  #scripted = []; // statuses to answer with instead; null for no answer at all

  get reports() {
    return this.#reports;
  }

  /** How many have ever come. */
  get received() {
    return this.#received;
  }

  /** The next `times` uploads get this status and are not kept; null leaves them without an answer. */
  script(status, times) {
    this.#scripted.push(...Array(times).fill(status));
  }

  /** Takes one upload: { status, message }, or null when the request is to hang. */
  async receive(request) {
    const lines = await readLines(request);
    if (this.#scripted.length > 0) {
      const status = this.#scripted.shift();
      return status === null ? null : { status, message: 'as prepared' };
    }
    if (lines === undefined) return { status: 413, message: `A file has at most ${MOST_BODY_BYTES} bytes.` };
    const reports = [];
    for (const [index, line] of lines.entries()) {
      try {
        if (line.length > MOST_LINE_CHARACTERS) throw new Error('the line is too long');
        reports.push(readReport(line));
      } catch (error) {
        return { status: 400, message: `Line ${index + 1}: ${error.message}.` };
      }
    }
    for (const report of reports) this.#keep(report);
    return { status: 204 };
  }

  #keep(report) {
    this.#received += 1;
    this.#reports.push(report);
    if (this.#reports.length > MOST_REPORTS) this.#reports.shift();
    this.emit('report', report);
  }
}

// The lines of a body, or undefined when there is too much of it.
async function readLines(request) {
  const chunks = [];
  let size = 0;
  for await (const chunk of request) {
    size += chunk.length;
    if (size <= MOST_BODY_BYTES) chunks.push(chunk);
    else chunks.length = 0;
  }
  if (size > MOST_BODY_BYTES) return undefined;
  return Buffer.concat(chunks).toString().split('\n').filter((line) => line !== '');
}
