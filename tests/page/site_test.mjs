// The documents' site in a browser. Run by scripts/test docs:
//
//     node site_test.mjs SITE OUTPUT
//
// Screenshots go to OUTPUT.
import assert from 'node:assert/strict';
import { existsSync, readdirSync } from 'node:fs';
import { resolve } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { barriers, newPage, widths } from './browser.mjs';

const [site, output] = process.argv.slice(2);
const complaints = [];
const page = await newPage({}, complaints);
const open = (name) => page.goto(`file://${resolve(site, name)}`);

const names = readdirSync(site).filter((name) =>
  /^(index|md_.*|classVeltrano|testing_8h|veltrano__c_8h)\.html$/.test(name));

test('no page has a link that leads nowhere, or scrolls sideways', async () => {
  assert.ok(names.length > 15);
  const faults = [];
  for (const name of names) {
    await open(name);
    const links = await page.$$eval('a[href]', (all) => all.map((link) => link.href.split('#')[0]));
    for (const link of new Set(links))  // the tree's, too
      if (link.startsWith('file:') && !existsSync(fileURLToPath(link))) faults.push([name, link]);
    for (const width of widths) {
      await page.setViewportSize({ width, height: 900 });
      const isTooWide = await page.evaluate(() => [document.documentElement,
        document.querySelector('#doc-content')].some((box) => box.scrollWidth > box.clientWidth));
      if (isTooWide) faults.push([name, width]);
    }
  }
  assert.deepEqual(faults, []);
});

for (const colorScheme of ['light', 'dark']) {
  test(`has contrast when ${colorScheme}`, async () => {
    for (const name of ['classVeltrano', 'index', 'md_docs_guide', 'md_docs_sizing']) {
      await open(`${name}.html`);
      assert.deepEqual(await barriers(page, colorScheme, 'color-contrast'), [], name);
    }
    for (const width of widths) {
      await page.setViewportSize({ width, height: 900 });
      await page.screenshot({ path: `${output}/site-${width}-${colorScheme}.png` });
    }
  });
}

test('lines have some 75 characters', async () => {
  await open('md_docs_guide.html');
  const lengths = await page.$$eval('.contents p', (paragraphs) => paragraphs
    .map((paragraph) => [paragraph.textContent.length, paragraph.getClientRects()[0].height
      / parseFloat(getComputedStyle(paragraph).lineHeight)])
    .filter(([, lines]) => lines > 3).map(([length, lines]) => length / lines));
  assert.ok(lengths.length > 5 && Math.max(...lengths) < 90, `${lengths}`);
});

test('the start page leads through the guides in reading order', async () => {
  await open('index.html');
  await page.locator('#nav-tree').getByRole('link', { name: 'Guide' }).click();
  await page.locator('.toc').getByRole('link', { name: 'Exit and fork' }).click();
  assert.match(page.url(), /guide\.html#/);
  assert.deepEqual(complaints, []);
});
