#!/usr/bin/env node
// The medians of many runs, as a table, and as data for the plot.
//     table.js RESULTS DATA
'use strict';
const fs = require('fs');
const { digits, median, readRuns } = require('./figures.js');

const CLIENTS = ['js', 'socketio-main', 'kit-main', 'kit-thread'];
const TITLES = {
  js: 'JavaScript client',
  'socketio-main': 'SocketIO/ alone, main queue',
  'kit-main': 'library, main queue',
  'kit-thread': 'library, engine thread',
};

const runs = readRuns(process.argv[2]);

function valueOf(workload, client, column) {
  return median(runs.filter((run) => run.workload === workload && run.client === client).map((run) => run[column]));
}

function row(title, workload, column) {
  const [reference, ...values] = CLIENTS.map((client) => valueOf(workload, client, column));
  const ratios = values.map((value) => value / reference);
  const cells = values.map((value, i) => `${digits(value)} (${ratios[i].toFixed(2)})`);
  return { title, ratios, text: `| ${[title, digits(reference), ...cells].join(' | ')} |` };
}

const workloads = ['recv_text', 'recv_binary32k', 'send_binary32k', 'ack_pipelined', 'ack_sequential', 'connect',
  'many_clients'];
const overTls = ['recv_text', 'recv_binary32k', 'send_binary32k', 'ack_sequential', 'connect', 'reconnect'];
const rows = [
  ...workloads.map((workload) => row(`${workload}: CPU us each`, workload, 'cpu_us_per_op')),
  row('many_clients: KiB each', 'many_clients', 'rss_kb_per_conn'),
  row('ack_sequential: median us', 'ack_sequential', 'p50_us'),
  row('connect: median us', 'connect', 'p50_us'),
  row('cold start: CPU ms', 'connect', 'cold_cpu_ms'),
  ...overTls.map((workload) => row(`TLS, ${workload}: CPU us each`, `tls_${workload}`, 'cpu_us_per_op')),
  row('TLS, many_clients: KiB each', 'tls_many_clients', 'rss_kb_per_conn'),
];

console.log(`| | ${CLIENTS.map((client) => TITLES[client]).join(' | ')} |`);
console.log(`|---${'|---'.repeat(CLIENTS.length)}|`);
for (const { text } of rows) console.log(text);
const plotted = rows.filter(({ title }) => /^[^,]*(CPU us|KiB)/.test(title));
fs.writeFileSync(process.argv[3], [
  ['""', ...CLIENTS.slice(1).map((client) => `"${TITLES[client]}"`)].join(' '),
  ...plotted.map(({ title, ratios }) => [`"${title.replace(/: CPU.*/, '').replace(': ', '\\n')}"`, ...ratios].join(' ')),
].join('\n') + '\n');
