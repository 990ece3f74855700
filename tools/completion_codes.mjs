// Writes what the public headers say of codes, states and reasons, as a page and as the tables behind `describe` and
// `toString`: each operation names its enumeration, each enumeration its codes, and the comment of a code is its sentence.
// Ends with status 1 if an operation names none, or if a code has no sentence, one that another has, or no origin.
//     node tools/completion_codes.mjs page > docs/completion_codes.md
//     node tools/completion_codes.mjs tables > Classes/Model/KvPimCodeTables.cpp

import { readFileSync, readdirSync } from 'node:fs';

const CODES_HEADER = 'Classes/Model/KvPimErrorCodes.h';
const TABLES_HEADER = 'Classes/Model/KvPimErrors.h'; // declares a table for each enumeration that has names
const OTHER_HEADERS = [TABLES_HEADER, 'Classes/Model/KvPimCodes.h', 'Classes/Model/KvPimInvitation.h', 'Classes/Model/KvPimMessage.h'];
const OPERATION_HEADERS = ['Classes/KvPimKit.h', 'Classes/KvPimChannel.h', 'Classes/KvPimInvitationKit.h'];
const TABLES_SOURCE = 'Classes/Model/KvPimCodeTables.cpp';
const COMMON = new Set(['Ok', 'NotLogin']); // made for all operations in one place

const problems = [];
const read = (path) => readFileSync(path, 'utf8');

function sources(folder) {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
    const path = `${folder}/${entry.name}`;
    if (entry.isDirectory()) return sources(path);
    return path.endsWith('.cpp') && path !== TABLES_SOURCE ? [read(path)] : [];
  });
}

/** "TooManyRequests" -> "too many requests", "Server5" -> "server's 5" */
const wordsOf = (name) =>
  name
    .replace(/^Server(\d+)$/, "Server's$1")
    .replace(/(?<=[a-z])(?=[A-Z\d])/g, ' ')
    .toLowerCase();

/** The enumerations of a header, with the comment of each enumerator: above it, or behind it. */
function enumerationsOf(header) {
  return [...read(header).matchAll(/^enum (?:class )?(\w+) (?:: [^{]*)?\{\n(.*?)^\};/gms)].map(([, name, body]) => {
    const codes = [...body.matchAll(/((?:^ +\/\/\/ .*\n)*)^ +(\w+) = (\d+),(?: +\/\/\/< (.*(?:\n +\/\/\/< .*)*))?$/gm)].map(
      ([, above, enumerator, number, behind]) => ({
        enumerator,
        number: Number(number),
        sentence: (above || behind || '').replace(/\s*\/\/\/<? /g, ' ').trim(),
      }),
    );
    if (codes.length !== body.match(/ = \d/g)?.length) problems.push(`${name}: a line is of another form`);
    for (const { enumerator, sentence } of codes) {
      if (!/^[A-Z"`].*\.$/.test(sentence)) problems.push(`${enumerator} has no sentence`);
      if (codes.filter((code) => code.sentence === sentence).length > 1) problems.push(`${enumerator} has a sentence that another has too`);
    }
    return { name, codes };
  });
}

function completionCodes() {
  const implementation = sources('Classes').join('\n');
  const found = new Map();
  for (const { name, codes } of enumerationsOf(CODES_HEADER)) {
    const prefix = name.replace(/Code$/, '');
    for (const code of codes) {
      code.name = code.enumerator.slice(prefix.length);
      if (!code.enumerator.startsWith(prefix)) problems.push(`${code.enumerator} is not named like its ${name}`);
      if (!COMMON.has(code.name) && !new RegExp(`\\b${code.enumerator}\\b`).test(implementation)) problems.push(`nothing makes ${code.enumerator}`);
    }
    found.set(name, { name, codes, operations: [] });
  }
  return found;
}

/** "KvPimJoinChannelErrorCode" -> "kv.pim.joinChannel" */
function categoryOf(name) {
  const own = { KvErrc: 'kv.pim', KvWaitError: 'kv.pim.wait' }[name];
  return own ?? name.replace(/^KvPim(\w)(\w*)ErrorCode$/, (_, first, rest) => `kv.pim.${first.toLowerCase()}${rest}`);
}

function tablesOf(sets) {
  const header = read(TABLES_HEADER);
  const declared = [...header.matchAll(/static (KvPim(?:Code|Error)Table) const& of\((\w+)\) noexcept;/g)];
  for (const { name } of sets) {
    if (!declared.some(([, , known]) => known === name)) problems.push(`${TABLES_HEADER} declares no table of ${name}`);
  }
  const definitions = declared.map(([, type, name]) => {
    const set = sets.find((candidate) => candidate.name === name);
    if (!set) problems.push(`there is no enumeration ${name}`);
    const rows = (set?.codes ?? []).map(
      ({ number, enumerator, sentence }) => `        {${number}, "${enumerator}", ${JSON.stringify(sentence)}},`,
    );
    const table =
      type === 'KvPimErrorTable'
        ? `    static auto const& table = KvPimErrorTable::make("${categoryOf(name)}", rows);`
        : '    static constexpr KvPimCodeTable table(rows);';
    return [
      `${type} const& KvPimTables::of(${name}) noexcept {`,
      '    static constexpr KvPimCodeTable::Row rows[] = {',
      ...rows,
      '    };',
      table,
      '    return table;',
      '}',
      '',
    ].join('\n');
  });
  return [
    '// Made by tools/completion_codes.mjs from the comments of the public headers: `./run docs` writes it anew.',
    '#include "Classes/Model/KvPimErrors.h"',
    '',
    'namespace kv {',
    '// clang-format off',
    '',
    ...definitions,
    '}  // namespace kv',
  ];
}

const publicPart = (header) => header.replace(/^private:.*?^};/gms, '');

/** Each declaration that takes a completion, and each callback that receives an error code, with the comment above it. */
function operations() {
  const declaration = /((?: *\/\/\/.*\n)+)? +(?:void (\w+)\([^;]*Completion done\)|std::function<[^;]*errorCode\)>\s+(\w+));/g;
  const all = OPERATION_HEADERS.flatMap((path) =>
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
  return all.filter(({ name }, place) => all.findIndex((operation) => operation.name === name) === place); // of overloads one
}

function row(cells) {
  return `| ${cells.join(' | ')} |`;
}

const sets = completionCodes();
const tables = tablesOf([...sets.values(), ...OTHER_HEADERS.flatMap(enumerationsOf)]);
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
  for (const code of codes) lines.push(row([code.number, `\`${code.enumerator}\``, code.sentence]));
  lines.push('');
}

if (problems.length > 0) {
  process.stderr.write(problems.map((problem) => `completion codes: ${problem}\n`).join(''));
  process.exit(1);
}
const written = { page: lines, tables }[process.argv[2]];
process.stdout.write(`${written.join('\n').trimEnd()}\n`);
