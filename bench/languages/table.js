#!/usr/bin/env node
// The C interface beside C++ and Python beside another client: medians of many runs, and of the ratios within each.
//     table.js RESULTS
'use strict';
const { digits, median, readRuns } = require('../figures.js');

const WORKLOADS = ['ack_pipelined', 'recv_text'];
const CLIENTS = {
  'kit-thread': 'C++, engine thread',
  'kit-main': 'C++, main queue',
  c: 'C',
  'python-kvpim': 'Python',
  'python-socketio': 'python3-socketio',
};
const PAIRS = [['c', 'kit-thread'], ['c', 'kit-main'], ['python-kvpim', 'python-socketio']];

const runs = readRuns(process.argv[2]);

/** In the order of the runs. */
const costs = (client, workload) =>
  runs.filter((run) => run.client === client && run.workload === workload).map((run) => run.cpu_us_per_op);

function ratio(one, other, workload) {
  const others = costs(other, workload);
  return median(costs(one, workload).map((cost, i) => cost / others[i]));
}

const print = (...cells) => console.log(`| ${cells.join(' | ')} |`);
print('CPU us each', ...WORKLOADS);
console.log(`|---${'|---'.repeat(WORKLOADS.length)}|`);
for (const [client, title] of Object.entries(CLIENTS))
  print(title, ...WORKLOADS.map((workload) => digits(median(costs(client, workload)))));
for (const [one, other] of PAIRS)
  print(`${CLIENTS[one]} / ${CLIENTS[other]}`, ...WORKLOADS.map((workload) => ratio(one, other, workload).toFixed(2)));
