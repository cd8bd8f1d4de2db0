// The Arrange screen end to end in Chromium with the fake camera: switching rows and seeing the
// preview change, dragging rows with the mouse, with a finger and from the keyboard, a preset saved,
// found after a reload, opened up in a render and deleted, and the ways back to the main screen.
import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { launch, repo, serve } from './browser.mjs';
import { writeY4m } from './fixtures.mjs';

const shots = process.env.ZORVEX_SCREENSHOTS ?? join(repo, 'build/e2e-screenshots');
mkdirSync(shots, { recursive: true });

let server, browser, page;
const pageErrors = [];

const shot = (name) => page.screenshot({ path: join(shots, `${name}.png`) });
const effects = () => page.evaluate(async () => (await window.zorvex.engine.request({ type: 'effects' })).rows);
const order = async (n) => (await effects()).slice(0, n).map((r) => r.name);
const active = async () => (await effects()).filter((r) => r.isActive).map((r) => r.name);
const kernelsRun = () => page.evaluate(async () => (await window.zorvex.engine.request({ type: 'status' })).kernelsRun);
const header = () => page.locator('#arrange-header').textContent();
const row = (name) => page.locator('.arrange-row', { has: page.getByRole('button', { name, exact: true }) });
const toggle = (name) => page.getByRole('button', { name, exact: true });

// What the canvas shows, once the preview that the last change asked for is on it.
async function picture() {
  await page.evaluate(() => window.zorvex.fxArrange2.updatePreview());
  return page.evaluate(() => {
    const c = document.getElementById('picture');
    const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
    let h = 0;
    for (let i = 0; i < d.length; i += 97) h = (h * 31 + d[i]) >>> 0;
    return h;
  });
}

// Waits until the screen has slid in and its table is filled.
async function arrangeShown() {
  await page.waitForFunction(() => {
    const arrange = document.getElementById('arrange');
    return arrange.classList.contains('shown') && getComputedStyle(arrange).transform === 'none';
  });
  await page.waitForFunction(() => document.querySelectorAll('.arrange-row').length >= 34);
}

async function openArrange() {
  await page.locator('#effects-arrange').click();
  await arrangeShown();
}

async function framesGoOn() {
  const start = await page.evaluate(() => window.zorvex.canvas.framesShown);
  await page.waitForFunction((n) => window.zorvex.canvas.framesShown >= n, start + 3, { timeout: 15000 });
}

// The middle of an element's grip.
async function grip(name) {
  const box = await row(name).locator('.row-grip').boundingBox();
  return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
}

async function openPage() {
  await page.goto(server.url);
  await page.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 20000 });
}

before(async () => {
  const work = mkdtempSync(join(tmpdir(), 'zorvex-e2e-'));
  const y4m = join(work, 'card.y4m');
  writeY4m(y4m, 480, 360);
  server = await serve();
  browser = await launch({ y4m });
  page = browser.context.pages()[0] ?? (await browser.context.newPage());
  page.on('pageerror', (e) => pageErrors.push(e.message));
  await openPage();
  await page.locator('#alert-action').click(); // the welcome of the first start
  await framesGoOn();
});

after(async () => {
  await browser?.close();
  server?.stop();
  assert.deepEqual(pageErrors, [], 'the page threw');
});

test('the stack opens over the picture, shuts the live frames out, and switching effects changes the preview', async () => {
  await openArrange();
  assert.equal(await page.evaluate(() => window.zorvex.vc.camera.useFrameProcessingCallbacks), false);
  assert.equal(await page.locator('#arrange-picture > #picture').count(), 1, 'the picture is lent');
  const events = await page.evaluate(() => window.zorvex.analytics.events().map((e) => e.name));
  assert.ok(events.includes('button_effectsArrange'));
  assert.equal(await header(), '  2 Effects Active');
  assert.deepEqual(await active(), ['VETH', 'AGENCY']);

  await toggle('VETH').click();
  assert.equal(await header(), '  1 Effect Active');
  await toggle('AGENCY').click();
  assert.equal(await header(), '  0 Effect Active');
  const base = await picture();
  await toggle('GRABOID').click();
  await toggle('BUNKER').click();
  assert.equal(await header(), '  2 Effects Active');
  assert.equal(await row('BUNKER').getAttribute('class'), 'arrange-row active');
  const kernels = await kernelsRun();
  const effected = await picture();
  assert.notEqual(effected, base, 'the two effects change the picture');
  assert.ok((await kernelsRun()) > kernels);
  assert.deepEqual(await active(), ['GRABOID', 'BUNKER']);
  await shot('12-arrange');
});

test('rows move by a mouse drag, a finger drag and from the keyboard', async () => {
  // The mouse takes BUNKER by its grip up to the top.
  const from = await grip('BUNKER');
  const top = await grip('GRABOID');
  await page.mouse.move(from.x, from.y);
  await page.mouse.down();
  await page.mouse.move(from.x, top.y - 10, { steps: 12 });
  await shot('13-arrange-dragging');
  await page.mouse.up();
  assert.deepEqual(await order(5), ['BUNKER', 'GRABOID', 'VETH', 'AGENCY', '2600++']);
  assert.equal(await header(), '  2 Effects Active');

  // A finger takes 2600++ one row down.
  const touch = await page.context().newCDPSession(page);
  const p = await grip('2600++');
  const point = (y) => [{ x: p.x, y, id: 1 }];
  await touch.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: point(p.y) });
  for (let i = 1; i <= 6; ++i) await touch.send('Input.dispatchTouchEvent', { type: 'touchMove', touchPoints: point(p.y + i * 10) });
  await touch.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
  assert.deepEqual(await order(6), ['BUNKER', 'GRABOID', 'VETH', 'AGENCY', 'CHIP13h', '2600++']);

  // Keys: Alt+Down moves the focused row, Space switches it.
  await toggle('VETH').focus();
  await page.keyboard.press('Alt+ArrowDown');
  assert.deepEqual(await order(4), ['BUNKER', 'GRABOID', 'AGENCY', 'VETH']);
  assert.equal(await page.evaluate(() => document.activeElement.textContent), 'VETH');
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('Space');
  assert.deepEqual(await active(), ['BUNKER', 'GRABOID', 'AGENCY']);
  await page.keyboard.press('Space');
  assert.deepEqual(await active(), ['BUNKER', 'GRABOID']);
});

test('a preset is saved, found after a reload, opened up in a render, and deleted', async () => {
  await page.locator('#save-preset').click();
  await page.keyboard.press('Enter'); // an empty name does nothing
  assert.equal(await page.locator('#save-panel').isVisible(), true);
  await page.locator('#preset-name').fill('DUO');
  await page.waitForTimeout(300); // the panel's fade
  await shot('14-arrange-save-panel');
  await page.keyboard.press('Enter');
  assert.equal(await page.locator('#system-alert-message').textContent(), 'Preset DUO Saved!');
  await shot('15-arrange-preset-saved');
  await page.locator('.system-alert-button', { hasText: 'Ok' }).click();
  await page.waitForFunction(() => document.getElementById('save-panel').hidden);
  assert.equal(await page.locator('#preset-name').inputValue(), '');

  await openPage();
  await framesGoOn();
  await openArrange();
  const rows = await effects();
  assert.deepEqual(rows.at(-1), { name: 'DUO', isActive: false, preset: true });
  assert.deepEqual(rows.slice(0, 2).map((r) => r.name), ['BUNKER', 'GRABOID'], 'the order came back with the list');
  const members = await picture();

  // On alone, the preset runs its two members, and the picture is theirs.
  await toggle('BUNKER').click();
  await toggle('GRABOID').click();
  await toggle('DUO').click();
  assert.equal(await header(), '  1 Effect Active');
  assert.deepEqual(await active(), ['DUO']);
  await picture();
  const kernels = await kernelsRun();
  assert.equal(await picture(), members);
  assert.equal((await kernelsRun()) - kernels, 2);
  await shot('16-arrange-preset-on');

  // Only the preset has the delete control; it asks, then deletes.
  assert.equal(await row('GRABOID').locator('.row-delete').count(), 0);
  await row('DUO').locator('.row-delete').click();
  await row('DUO').locator('.row-confirm').click();
  await page.waitForFunction(() => ![...document.querySelectorAll('.row-toggle')].some((b) => b.textContent === 'DUO'));
  assert.equal((await effects()).some((r) => r.name === 'DUO'), false);
  assert.equal(await header(), '  0 Effect Active');
});

test('Done, a swipe and Escape give the picture back and the live frames go on', async () => {
  await page.locator('#arrange-done').click();
  await page.waitForFunction(() => document.getElementById('arrange').hidden);
  assert.equal(await page.locator('#top > #picture').count(), 1);
  await framesGoOn();

  await page.keyboard.press('a');
  await arrangeShown();
  const touch = await page.context().newCDPSession(page);
  const box = await page.locator('#arrange-picture').boundingBox();
  const y = box.y + box.height / 2;
  await touch.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: [{ x: box.x + 20, y }] });
  for (let i = 1; i <= 5; ++i) await touch.send('Input.dispatchTouchEvent', { type: 'touchMove', touchPoints: [{ x: box.x + 20 + i * 30, y }] });
  await touch.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
  await page.waitForFunction(() => document.getElementById('arrange').hidden);
  assert.equal(await page.locator('#top > #picture').count(), 1);
  await framesGoOn();

  await page.keyboard.press('a');
  await arrangeShown();
  await page.keyboard.press('Escape');
  await page.waitForFunction(() => document.getElementById('arrange').hidden);
  assert.equal(await page.evaluate(() => window.zorvex.vc.mode), 0);
  await framesGoOn();
});

test('landscape and desktop put the table beside the picture', async () => {
  await page.setViewportSize({ width: 844, height: 390 });
  await openArrange();
  await page.waitForTimeout(400);
  assert.equal(await page.evaluate(() => document.getElementById('arrange').classList.contains('horizontal')), true);
  await shot('17-arrange-landscape');
  await page.setViewportSize({ width: 1280, height: 800 });
  await page.waitForTimeout(400);
  await shot('18-arrange-desktop');
  assert.equal(Math.round((await page.locator('#arrange-table-holder').boundingBox()).width), 375);
});
