// What the tables are made of.
'use strict';
const fs = require('fs');

/** The lines of JSON of a file: the library prints a line of its own when it finds no device id. */
function readRuns(file) {
  return fs.readFileSync(file, 'utf8').split('\n').filter((line) => line.startsWith('{')).map((line) => JSON.parse(line));
}

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

/** Three digits that count. */
const digits = (value) => (value >= 100 ? value.toFixed(0) : value.toPrecision(3));

module.exports = { readRuns, median, digits };
