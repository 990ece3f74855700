// Writes the page of all completion codes from what the public headers say: each operation names its enumeration, each
// enumeration its codes. Ends with status 1 if an operation names none, or if a code has no meaning or no origin.
//     node tools/completion_codes.mjs > docs/completion_codes.md

import { readFileSync, readdirSync } from 'node:fs';

const CODES_HEADER = 'Classes/Model/KvPimErrorCodes.h';
const OPERATION_HEADERS = ['Classes/KvPimKit.h', 'Classes/KvPimChannel.h', 'Classes/KvPimInvitationKit.h'];
const COMMON = new Set(['Ok', 'NotLogin']); // made for all operations in one place

const problems = [];
const read = (path) => readFileSync(path, 'utf8');

function sources(folder) {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
    const path = `${folder}/${entry.name}`;
    if (entry.isDirectory()) return sources(path);
    return path.endsWith('.cpp') ? [read(path)] : [];
  });
}

/** "TooManyRequests" -> "too many requests", "Server5" -> "server's 5" */
const wordsOf = (name) =>
  name
    .replace(/^Server(\d+)$/, "Server's$1")
    .replace(/(?<=[a-z])(?=[A-Z\d])/g, ' ')
    .toLowerCase();

function enumerations() {
  const implementation = sources('Classes').join('\n');
  const found = new Map();
  for (const [, name, prefix, body] of read(CODES_HEADER).matchAll(/^enum ((KvPim\w+Error)Code) : [^{]*\{\n(.*?)^\};/gms)) {
    const codes = [...body.matchAll(/^ +(\w+) = (\d+),(?: +\/\/\/< (.*(?:\n +\/\/\/< .*)*))?$/gm)].map(
      ([, enumerator, number, meaning]) => ({
        enumerator,
        number: Number(number),
        name: enumerator.slice(prefix.length),
        meaning: meaning?.replace(/\n +\/\/\/< /g, ' '),
      }),
    );
    if (codes.length !== body.match(/ = \d/g)?.length) problems.push(`${name}: a line is of another form`);
    for (const code of codes) {
      if (!code.enumerator.startsWith(prefix)) problems.push(`${code.enumerator} is not named like its ${name}`);
      if (!code.meaning) problems.push(`${code.enumerator} has no meaning`);
      if (!COMMON.has(code.name) && !new RegExp(`\\b${code.enumerator}\\b`).test(implementation)) problems.push(`nothing makes ${code.enumerator}`);
    }
    found.set(name, { name, codes, operations: [] });
  }
  return found;
}

const publicPart = (header) => header.replace(/^private:.*?^};/gms, '');

/** Each declaration that takes a completion, and each callback that receives an error code, with the comment above it. */
function operations() {
  const declaration = /((?: *\/\/\/.*\n)+)? +(?:void (\w+)\([^;]*Completion done\)|std::function<[^;]*errorCode\)>\s+(\w+));/g;
  return OPERATION_HEADERS.flatMap((path) =>
    [...publicPart(read(path)).matchAll(declaration)].map(([, comment = '', operation, callback]) => {
      const text = comment.replace(/\n? *\/\/\/ */g, ' ');
      return {
        name: operation ?? callback,
        hasCompletion: operation !== undefined,
        set: text.match(/KvPim\w+ErrorCode/)?.[0],
        never: new Set(text.match(/ErrorCode, never ([\d or]+)/)?.[1].match(/\d+/g)?.map(Number)),
      };
    }),
  );
}

function row(cells) {
  return `| ${cells.join(' | ')} |`;
}

const sets = enumerations();
for (const operation of operations()) {
  const set = sets.get(operation.set);
  if (set) set.operations.push(operation);
  else problems.push(`${operation.name} does not say which codes its completion receives`);
}
for (const set of sets.values()) {
  if (set.operations.length === 0) problems.push(`no operation has a ${set.name}`);
}
const named = [...sets.values()].flatMap((set) => set.codes.filter((code) => !COMMON.has(code.name)));
const numbers = [...new Set(named.map((code) => code.number))].filter((number) => number > 0).sort((a, b) => a - b);

const lines = [
  '# Completion codes',
  '',
  '<!-- Made by tools/completion_codes.mjs from the public headers: `./run docs` writes it anew. -->',
  '',
  'A completion receives 0 for success and 102 when the client is not logged in. Every other number is the operation\'s own:',
  'what is a time-out for one is a refusal for another. "Server\'s 5" is the result 5 of the server, passed on as it came;',
  'what the local service means by it is told in `service/README.md`.',
  '',
  'A code for what is wrong with the call itself (not logged in, invalid argument) comes inside the call, and nothing is',
  'sent. The others come later. Three operations may call their completion more than once: `loginByToken` after a 9, and',
  '`sendMessage` and `sendMessageToPeer` after "too long".',
  '',
  row(['operation', ...numbers]),
  row(['---', ...numbers.map(() => '---')]),
];
for (const { codes, operations: owners } of sets.values()) {
  for (const { name, never, hasCompletion } of owners) {
    if (!hasCompletion) continue;
    const cells = numbers.map((number) => {
      const code = codes.find((candidate) => candidate.number === number);
      return code && !never.has(number) ? wordsOf(code.name) : '';
    });
    lines.push(row([`\`${name}\``, ...cells]));
  }
}
lines.push('', '## Names and meanings', '');
for (const { name, codes, operations: owners } of sets.values()) {
  lines.push(`### ${name}`, '', `Of ${owners.map((owner) => `\`${owner.name}\``).join(', ')}.`, '');
  lines.push(row(['code', 'name', 'meaning']), row(['---', '---', '---']));
  for (const code of codes) lines.push(row([code.number, `\`${code.enumerator}\``, code.meaning]));
  lines.push('');
}

if (problems.length > 0) {
  process.stderr.write(problems.map((problem) => `completion codes: ${problem}\n`).join(''));
  process.exit(1);
}
process.stdout.write(`${lines.join('\n').trimEnd()}\n`);
