// The Arrange screen end to end in Chromium with the fake camera: switching rows and seeing the
// preview change, dragging rows with the mouse, with a finger and from the keyboard, a preset saved,
// found after a reload, opened up in a render and deleted, and the ways back to the main screen.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { openApp } from './browser.mjs';

let app, page;
const order = async (n) => (await app.effects()).slice(0, n).map((r) => r.name);
const active = async () => (await app.effects()).filter((r) => r.isActive).map((r) => r.name);
const kernelsRun = async () => (await app.status()).kernelsRun;
const header = () => page.locator('#arrange-header').textContent();
const toggle = (name) => page.getByRole('button', { name, exact: true });
const row = (name) => page.locator('.arrange-row', { has: toggle(name) });

// What the canvas shows, once the preview that the last change asked for is on it.
async function picture() {
  await page.evaluate(() => window.zorvex.fxArrange2.updatePreview());
  return app.canvasPrint();
}

// Opens the screen by its button, or by the key given, and waits until it has slid in and its table
// is filled.
async function openArrange(key) {
  await (key ? page.keyboard.press(key) : page.locator('#effects-arrange').click());
  await page.waitForFunction(() => {
    const arrange = document.getElementById('arrange');
    return arrange.classList.contains('shown') && getComputedStyle(arrange).transform === 'none';
  });
  await page.waitForFunction(() => document.querySelectorAll('.arrange-row').length >= 34);
}

// The middle of a row's grip.
async function grip(name) {
  const box = await row(name).locator('.row-grip').boundingBox();
  return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
}

// A finger put down at `from` and moved in `steps` steps of `by`.
async function swipe(from, by, steps) {
  const touch = await page.context().newCDPSession(page);
  const at = (i) => [{ x: from.x + i * by.x, y: from.y + i * by.y, id: 1 }];
  await touch.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: at(0) });
  for (let i = 1; i <= steps; ++i) await touch.send('Input.dispatchTouchEvent', { type: 'touchMove', touchPoints: at(i) });
  await touch.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
}

before(async () => {
  app = await openApp();
  page = app.page;
  await app.skipTours(); // the welcome of the first start
  await app.framesGoOn();
});

after(() => app?.close());

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
  assert.notEqual(await picture(), base, 'the two effects change the picture');
  assert.ok((await kernelsRun()) > kernels);
  assert.deepEqual(await active(), ['GRABOID', 'BUNKER']);
  await app.shot('12-arrange');
});

test('rows move by a mouse drag, a finger drag and from the keyboard', async () => {
  // The mouse takes BUNKER by its grip up to the top.
  const from = await grip('BUNKER');
  await page.mouse.move(from.x, from.y);
  await page.mouse.down();
  await page.mouse.move(from.x, (await grip('GRABOID')).y - 10, { steps: 12 });
  await app.shot('13-arrange-dragging');
  await page.mouse.up();
  assert.deepEqual(await order(5), ['BUNKER', 'GRABOID', 'VETH', 'AGENCY', '2600++']);
  assert.equal(await header(), '  2 Effects Active');

  // A finger takes 2600++ one row down.
  await swipe(await grip('2600++'), { x: 0, y: 10 }, 6);
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
  await app.shot('14-arrange-save-panel');
  await page.keyboard.press('Enter');
  assert.equal(await page.locator('#system-alert-message').textContent(), 'Preset DUO Saved!');
  await app.shot('15-arrange-preset-saved');
  await page.locator('.system-alert-button', { hasText: 'Ok' }).click();
  await page.waitForFunction(() => document.getElementById('save-panel').hidden);
  assert.equal(await page.locator('#preset-name').inputValue(), '');

  await app.load();
  await app.framesGoOn();
  await openArrange();
  const rows = await app.effects();
  assert.deepEqual(rows.at(-1), { name: 'DUO', isActive: false, preset: true });
  assert.deepEqual(rows.slice(0, 2).map((r) => r.name), ['BUNKER', 'GRABOID'], 'the order came back with the list');
  const members = await picture();

  // On alone, the preset runs its two members, and the picture is theirs.
  for (const name of ['BUNKER', 'GRABOID', 'DUO']) await toggle(name).click();
  assert.equal(await header(), '  1 Effect Active');
  assert.deepEqual(await active(), ['DUO']);
  await picture();
  const kernels = await kernelsRun();
  assert.equal(await picture(), members);
  assert.equal((await kernelsRun()) - kernels, 2);
  await app.shot('16-arrange-preset-on');

  // Only the preset has the delete control; it asks, then deletes.
  assert.equal(await row('GRABOID').locator('.row-delete').count(), 0);
  await row('DUO').locator('.row-delete').click();
  await row('DUO').locator('.row-confirm').click();
  await page.waitForFunction(() => ![...document.querySelectorAll('.row-toggle')].some((b) => b.textContent === 'DUO'));
  assert.equal((await app.effects()).some((r) => r.name === 'DUO'), false);
  assert.equal(await header(), '  0 Effect Active');
});

test('Done, a swipe and Escape give the picture back and the live frames go on', async () => {
  const ways = [
    () => page.locator('#arrange-done').click(),
    async () => {
      const box = await page.locator('#arrange-picture').boundingBox();
      await swipe({ x: box.x + 20, y: box.y + box.height / 2 }, { x: 30, y: 0 }, 5);
    },
    () => page.keyboard.press('Escape'),
  ];
  for (const leave of ways) {
    if (leave !== ways[0]) await openArrange('a');
    await leave();
    await page.waitForFunction(() => document.getElementById('arrange').hidden);
    assert.equal(await page.locator('#top > #picture').count(), 1);
    assert.equal(await page.evaluate(() => window.zorvex.vc.mode), 0);
    await app.framesGoOn();
  }
});

test('landscape and desktop put the table beside the picture', async () => {
  await page.setViewportSize({ width: 844, height: 390 });
  await openArrange();
  await page.waitForTimeout(400);
  assert.equal(await page.evaluate(() => document.getElementById('arrange').classList.contains('horizontal')), true);
  await app.shot('17-arrange-landscape');
  await page.setViewportSize({ width: 1280, height: 800 });
  await page.waitForTimeout(400);
  await app.shot('18-arrange-desktop');
  assert.equal(Math.round((await page.locator('#arrange-table-holder').boundingBox()).width), 375);
});
