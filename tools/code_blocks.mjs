// Makes a C++ file of each Markdown page that shows C++, for a compiler to look at: node tools/code_blocks.mjs FOLDER PAGE...
// Prints the names of the files.
//
// A page is read from top to bottom, as its reader does: a block sees what those above it have included and declared. A
// block with a function of its own stands by itself; where one awaits, all of the others are a task. What a page only speaks
// of is declared in a comment, which readers do not see:
//     <!-- given: std::string token; -->

import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

const [folder, ...pages] = process.argv.slice(2);
mkdirSync(folder, { recursive: true });

function fileOf(page) {
  const includes = [];
  const programs = [];
  const steps = [];
  const pieces = readFileSync(page, 'utf8').matchAll(/^```cpp\n(.*?)^```$|<!-- given: (.*?) -->/gms);
  for (const { index, input, 1: block, 2: given } of pieces) {
    if (given) {
      steps.push(given);
      continue;
    }
    const line = input.slice(0, index).split('\n').length + 1;
    const code = block.replace(/^#include .*$/gm, (include) => {
      includes.push(include);
      return '';
    });
    const text = `#line ${line} "${page}"\n${code}`;
    if (/^(int main|void \w+|TEST|kv::KvTask<.*> \w+)\(/m.test(block)) programs.push(`namespace block${line} {\n${text}}\n`);
    else steps.push(`{\n${text}`);
  }
  const isEmpty = programs.length === 0 && steps.length === 0;
  const end = '}'.repeat(steps.filter((step) => step.startsWith('{')).length);
  const result = steps.some((step) => step.includes('co_await')) ? 'kv::KvTask<>' : 'void';
  const body = `${result} page() {\n${steps.join('\n')}${end}\n}\n`;
  return isEmpty ? null : [...includes, ...programs, body].join('\n');
}

for (const page of pages) {
  const text = fileOf(page);
  if (text === null) continue;
  const name = join(folder, `${page.replaceAll('/', '_')}.cpp`);
  writeFileSync(name, text);
  process.stdout.write(`${name}\n`);
}
