// The browser of the tests here, and what every page keeps to.
import { after } from 'node:test';
import { AxeBuilder } from '@axe-core/playwright';
import { chromium } from 'playwright-core';

export const widths = [390, 1110, 1280, 1440, 1920];

export const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox'] });
after(() => browser.close());

// A page in a new context. What its scripts complain about goes to `complaints`.
export async function newPage(options, complaints) {
  const page = await (await browser.newContext(options)).newPage();
  page.setDefaultTimeout(10_000);
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  return page;
}

// What is hard to read or to use, in the colours `colorScheme`; by all rules unless some are named.
export async function barriers(page, colorScheme, ...rules) {
  await page.emulateMedia({ colorScheme });
  const axe = new AxeBuilder({ page });
  if (rules.length) axe.withRules(rules);
  const { violations } = await axe.analyze();
  return violations.map(({ id, nodes }) => [id, nodes.map(({ html }) => html)]);
}
