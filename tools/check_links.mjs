// Checks that what links point to is there: node tools/check_links.mjs FILE... Web addresses are not asked for.
// Knows Markdown (relative paths, headings of the same page) and HTML (relative paths, ids).

import { existsSync, readFileSync } from 'node:fs';
import { dirname, join, normalize } from 'node:path';

const isElsewhere = (target) => /^[a-z][a-z+.-]*:|^\/\//i.test(target);
const texts = new Map();

function read(path) {
  if (!texts.has(path)) texts.set(path, readFileSync(path, 'utf8'));
  return texts.get(path);
}

function markdownLinks(text) {
  const prose = text.replace(/^```.*?^```/gms, '').replace(/`[^`\n]*`/g, '');
  return [...prose.matchAll(/\]\(([^)\s]+)\)/g)].map((match) => match[1]);
}

function htmlLinks(text) {
  const page = text.replace(/<(script|style)\b.*?<\/\1>/gs, '').replace(/<!--.*?-->/gs, '');
  return [...page.matchAll(/<(?:a|area|link|img|script|iframe)\b[^>]*?\s(?:href|src)="([^"]*)"/g)].map((match) =>
    match[1].replaceAll('&amp;', '&'),
  );
}

/** As the web shows of Git repositories name headings. */
const slugOf = (heading) =>
  heading
    .trim()
    .toLowerCase()
    .replace(/[^\p{L}\p{N} _-]/gu, '')
    .replaceAll(' ', '-');

function hasAnchor(path, anchor) {
  const text = read(path);
  if (path.endsWith('.html')) return text.includes(`id="${anchor}"`) || text.includes(`name="${anchor}"`);
  return [...text.matchAll(/^#+ (.*)$/gm)].some(([, heading]) => slugOf(heading) === anchor);
}

function problemOf(file, link) {
  const [target, anchor] = decodeURI(link).split('#');
  const path = target === '' ? file : normalize(join(dirname(file), target.split('?')[0]));
  if (!existsSync(path)) return 'is not there';
  if (anchor && /\.(html|md)$/.test(path) && !hasAnchor(path, anchor)) return 'has no such place';
  return null;
}

let links = 0;
let broken = 0;
for (const file of process.argv.slice(2)) {
  for (const link of (file.endsWith('.html') ? htmlLinks : markdownLinks)(read(file))) {
    if (link === '' || isElsewhere(link)) continue;
    links += 1;
    const problem = problemOf(file, link);
    if (!problem) continue;
    broken += 1;
    process.stderr.write(`${file}: ${link} ${problem}\n`);
  }
}
process.stdout.write(`${links} links checked, ${broken} broken\n`);
process.exit(broken > 0 ? 1 : 0);
