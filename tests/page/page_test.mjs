// The collector's page in a browser. demo_host sends the events; plan_test sends what is not as planned.
// Run by scripts/test page:
//
//     node page_test.mjs PROGRAMS OUTPUT
//
// PROGRAMS holds veltrano-collector, demo_host and plan_test. Screenshots go to OUTPUT; readme.png is for
// the README, which has it as docs/page.png.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import https from 'node:https';
import { createInterface } from 'node:readline';
import { after, test } from 'node:test';
import { barriers, newPage, widths } from './browser.mjs';

const [programs, output] = process.argv.slice(2);

async function startCollector(plan, ...options) {
  const path = new URL(`../../${plan}`, import.meta.url).pathname;
  const collector = spawn(`${programs}/veltrano-collector`, ['--plan', path, ...options],
    { stdio: ['ignore', 'pipe', 'ignore'] });
  after(() => collector.kill());
  process.on('exit', () => collector.kill()); // should the browser not start
  const announced = {};
  for await (const line of createInterface(collector.stdout)) {
    if (line === 'ready') break;
    announced[line.slice(0, line.indexOf('='))] = line.slice(line.indexOf('=') + 1);
  }
  collector.stdout.resume();
  return announced;
}

const { url, certificate, page: pageURL } =
  await startCollector('examples/demo_plan.json', '--require-token', 'demo-token');
const complaints = [];
const page = await newPage({ viewport: { width: 1440, height: 900 },
  permissions: ['clipboard-read', 'clipboard-write'] }, complaints);
await page.goto(pageURL);

async function track(body) {
  const agent = { ca: readFileSync(certificate), method: 'POST',
    headers: { lib_version: 'ios_1.0', publisher_version: 'ios_1.0', 'Content-Length': body.length } };
  const request = https.request(`${url}/track?uid=crowd`, agent).end(body);
  const [response] = await once(request, 'response');
  response.resume();
  return response.statusCode;
}
const encoded = (json) => `data=${Buffer.from(json).toString('base64')}`;
const batch = (records) => encoded(JSON.stringify(records));
const record = (event, properties) => ({ event,
  properties: { time: Date.now(), $wifi: true, extra_json: { att_auth_status: 0 }, ...properties } });
const choose = (list, text) =>
  page.getByRole('listbox', { name: list }).getByRole('option').filter({ hasText: text }).first();

test('shows the events, heartbeats and sessions of the demo as they arrive', async () => {
  const host = spawn(`${programs}/demo_host`, [url.replace('https://', ''), certificate]);
  host.stdout.resume();
  const ended = once(host, 'exit');
  await choose('Events', 'Bought').waitFor();
  assert.equal((await ended)[0], 0);
  await page.getByText('20 events · 2 heartbeats · 0 refused').waitFor();
  await page.getByText(/ s, 2 heartbeats, \d+ events/).waitFor();
  await page.getByRole('img', { name: /[1-9]\d* failed by a fault/ }).waitFor();

  await page.setViewportSize({ width: 1110, height: 823 }); // the list begins with a whole row
  await choose('Events', 'Bought').click();
  const image = await page.screenshot({ path: `${output}/readme.png` });
  await page.setViewportSize({ width: 1440, height: 900 });
  assert.ok(image.length <= 200 * 1024);
});

test('marks what is not as planned, and shows only that', async () => {
  const planned = await startCollector('tests/plan/plan.json');
  const host = spawn(`${programs}/plan_test`, ['--gtest_filter=TypedCalls.ReachACollector'],
    { stdio: 'ignore', env: { VELTRANO_COLLECTOR_PORT: new URL(planned.url).port,
      VELTRANO_COLLECTOR_CERTIFICATE: planned.certificate } });
  after(() => host.kill());
  assert.equal((await once(host, 'exit'))[0], 0);
  const page = await newPage({}, complaints);
  await page.goto(planned.page);
  await page.getByText('5 events · ').waitFor();
  await page.getByLabel('Show').selectOption('violation');
  await page.locator('#events > [role=option]:not([hidden]):not(.violation)').first()
    .waitFor({ state: 'detached' });
  await page.locator('#events .violation:visible').filter({ hasText: 'Optional' }).click();
  await page.getByText('Optional: "much" is "2"; planned: number').waitFor();
  await page.getByLabel('Show').selectOption('');
  await page.locator('#events > [role=option]:visible').nth(4).waitFor();
  await page.close();
});

test('filters by name, user and text', async () => {
  const cases = [['Name', 'song pl', '12 of 22'], ['User', 'nobody', '0 of 22'],
    ['Text', '"city":"lisbon"', '1 of 22']];
  for (const [label, text, count] of cases) {
    await page.getByLabel(label).fill(text);
    await page.getByText(count, { exact: true }).waitFor();
    const rows = await page.getByRole('listbox', { name: 'Events' }).getByRole('option').count();
    assert.ok(rows <= parseInt(count), `${rows} rows are shown of ${count}`);
    await page.getByLabel(label).fill('');
  }
});

test('opens an event and its properties by keyboard alone, and copies it', async () => {
  await page.getByLabel('Text').fill('lisbon');
  await page.getByLabel('Show').focus();
  await page.keyboard.press('Tab');
  await page.keyboard.press('ArrowDown');
  await page.keyboard.press('Enter');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter'); // copies
  await page.getByText('Copied.').waitFor();
  const copied = JSON.parse(await page.evaluate(() => navigator.clipboard.readText()));
  assert.equal(copied.properties.address.city, 'Lisbon');

  const manufacturer = page.getByRole('row', { name: '$manufacturer "Apple"' });
  assert.ok(!await manufacturer.isVisible());
  for (let i = 0; i < 3; ++i) await page.keyboard.press('Tab'); // past the host's and the user's groups
  await page.keyboard.press('Enter');
  await manufacturer.waitFor();
  await page.getByLabel('Text').fill('');
});

test('arms and lifts faults', async () => {
  await page.evaluate(() => { // faster than the collector answers
    for (const member of ['status', 'retry_after'])
      document.querySelector(`#faults [data-path="/track"][data-member=${member}]`).click();
  });
  await page.getByText('/track: status 503, retry_after 5').waitFor();
  assert.equal(await track(batch([record('Lost', {})])), 503);
  await page.getByRole('button', { name: 'Lift Status on /track' }).click();
  await page.getByRole('button', { name: 'Lift all' }).click();
  await page.getByRole('button', { name: 'Arm Retry-After on /track' }).waitFor();
  assert.equal(await track(batch([record('Kept', {})])), 200);
});

test('shows what was wrong with a refused request, and no request becomes part of the page', async () => {
  const html = '<img src=x onerror=alert(1)>';
  await track(batch([{ event: html }]));
  await choose('Refused requests', 'are not exactly').click();
  await page.getByText(`"event":"${html}"`).waitFor();
  await track(encoded(JSON.stringify([record(html, { id: 1 })])
    .replace('"id":1', '"id":12345678901234567890')));
  await choose('Events', html).click();
  await page.getByRole('row', { name: 'id 12345678901234567890' }).waitFor();
  assert.equal(await page.locator('img').count(), 0);
});

test('pauses and goes on', async () => {
  await page.getByRole('button', { name: 'Pause' }).click();
  await track(batch([record('Late', { time: Date.now() - 90_000_000 })]));
  await page.getByText('paused, 1 new').waitFor();
  assert.equal(await choose('Events', 'Late').count(), 0);
  await page.getByRole('button', { name: 'Resume' }).click();
  const date = new Date(Date.now() - 90_000_000)
    .toLocaleDateString('en-US', { day: '2-digit', month: '2-digit' });
  await choose('Events', `${date} `).filter({ hasText: 'Late' }).waitFor();
});

for (const width of widths) {
  test(`no two controls overlap at a width of ${width}`, async () => {
    await page.setViewportSize({ width, height: 900 });
    const overlaps = await page.evaluate(() => {
      const boxes = [...document.querySelectorAll('button, input, select, output')]
        .filter((control) => !control.closest('#details'))
        .map((control) => [control.id || control.name || control.ariaLabel,
          control.getBoundingClientRect()]);
      const narrow = boxes.filter(([name, { width }]) =>
        ['name', 'uid', 'text', 'kind'].includes(name) && width < 90);
      const pairs = boxes.flatMap(([name, a], i) => boxes.slice(i + 1)
        .filter(([, b]) => a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom)
        .map(([other]) => [name, other]));
      const wide = document.documentElement.scrollWidth > innerWidth ? ['the page'] : [];
      return [...narrow.map(([name]) => [name]), ...pairs, ...wide];
    });
    await page.screenshot({ path: `${output}/page-${width}.png` });
    await page.setViewportSize({ width: 1440, height: 900 });
    assert.deepEqual(overlaps, []);
  });
}

for (const colorScheme of ['light', 'dark']) {
  test(`is accessible when ${colorScheme}`, async () => {
    await choose('Events', 'Late').click();
    assert.deepEqual(await barriers(page, colorScheme), []);
    await page.screenshot({ path: `${output}/page-${colorScheme}.png` });
  });
}

test('scrolls through ten thousand events, and keeps the sessions', async () => {
  const session = await page.getByText(/ s, 2 heartbeats, \d+ events/).textContent();
  await page.getByRole('listbox', { name: 'Events' }).focus();
  await page.keyboard.press('End'); // follows what arrives
  for (let i = 0; i < 50; ++i)
    await track(batch(Array.from({ length: 200 }, (_, j) =>
      record('Song Played', { track: i * 200 + j, room: 'x'.repeat(400) }))));
  await choose('Events', 'track=9999').waitFor();
  await page.getByText(session, { exact: true }).waitFor();
  await page.getByRole('listbox', { name: 'Events' }).hover();
  for (let i = 0; i < 40; ++i) await page.mouse.wheel(0, i % 2 ? -900 : -12_000);
  assert.ok(await page.getByRole('option').count() < 100, 'only the rows in view are in the page');

  await page.getByRole('listbox', { name: 'Events' }).focus();
  await page.keyboard.press('Home');
  assert.equal(await page.locator('#events [aria-selected=true]').getAttribute('aria-posinset'), '1');
});

test('clears', async () => {
  await page.getByRole('button', { name: 'Clear' }).click();
  await page.getByText('0 events · 0 heartbeats · 0 refused').waitFor();
  assert.deepEqual(complaints, []);
});
