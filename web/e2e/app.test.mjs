// The app end to end in Chromium with a fake camera playing a test card: the live feed, the shutter,
// blend and opacity, the edit tools, save, the way back, the library, a reload, an engine that dies,
// the start offline and the layouts, with a screenshot of each step for a person to look at.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, before, test } from 'node:test';

import { openApp } from './browser.mjs';
import { withOrientation } from './fixtures.mjs';

let app, page;
const info = () => page.locator('#info-label').textContent();
const mode = () => page.evaluate(() => window.zorvex.vc.mode);
const waitForMode = (m) => page.waitForFunction((m) => window.zorvex.vc.mode === m, m, { timeout: 15000 });
const waitForInfo = (text) =>
  page.waitForFunction((t) => document.getElementById('info-label').textContent === t, text, { timeout: 30000 });

// Waits until the engine has nothing in flight, so that the canvas shows the last request.
async function settle() {
  await app.status();
  await page.waitForTimeout(100);
}

// The library button, and a file chosen in the picker it opens.
async function pick(file) {
  const chooser = page.waitForEvent('filechooser');
  await page.locator('#library').click();
  await (await chooser).setFiles(file);
}

before(async () => {
  app = await openApp();
  page = app.page;
});

after(() => app?.close());

test('the first start greets, counts the launch and shows effected live frames', async () => {
  await app.skipTours();
  await app.framesGoOn(5);
  assert.equal(await page.evaluate(() => window.zorvex.settings.launchCount()), 1);
  // Held down, the picture shows the base alone; let go, the effects again.
  const box = await page.locator('#picture').boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.evaluate(() => (window.zorvex.vc.camera.useFrameProcessingCallbacks = false));
  await settle();
  const kernels = (await app.status()).kernelsRun;
  const effected = await app.canvasPrint();
  await page.mouse.down();
  await settle();
  const base = await app.canvasPrint();
  await page.mouse.up();
  await settle();
  assert.notEqual(base, effected, 'the effects change the live picture');
  assert.equal(await app.canvasPrint(), effected);
  assert.equal((await app.status()).kernelsRun, kernels, 'holding the picture runs no kernel');
  await page.evaluate(() => (window.zorvex.vc.camera.useFrameProcessingCallbacks = true));
  await app.framesGoOn();
  await app.shot('01-live-feed');
});

test('the shutter takes a full-size still into edit mode', async () => {
  await page.keyboard.press('Space');
  await waitForMode(1);
  await page.waitForFunction(async () => (await window.zorvex.engine.request({ type: 'status' })).originalWidth > 0);
  const s = await app.status();
  const track = await page.evaluate(() => document.getElementById('camera-video').srcObject?.getVideoTracks()[0]?.getSettings());
  assert.ok(s.originalWidth * s.originalHeight >= 480 * 360, `a still of ${s.originalWidth}x${s.originalHeight}`);
  assert.ok(!track || s.originalWidth >= Math.min(track.width, track.height));
  await page.waitForTimeout(400);
  assert.equal(await page.locator('#edit-controls').isVisible(), true);
  await app.shot('02-edit-mode');
});

test('blend and opacity change the picture without a new run of the stack', async () => {
  await settle();
  const before = await app.canvasPrint();
  const kernels = (await app.status()).kernelsRun;
  await page.locator('#blend').click();
  await page.waitForTimeout(300);
  await app.shot('03-blend-panel');
  await page.locator('.blend-row', { hasText: 'Difference' }).click();
  await settle();
  assert.equal(await page.locator('#blend').textContent(), 'Blend:\nDifference');
  const blended = await app.canvasPrint();
  assert.notEqual(blended, before);
  await page.keyboard.press('Escape');
  await page.locator('#alpha-slider').fill('0.3');
  await settle();
  assert.equal(await info(), 'OPACITY 30%');
  assert.notEqual(await app.canvasPrint(), blended);
  assert.equal((await app.status()).kernelsRun, kernels, 'no kernel ran for blend or opacity');
  await app.shot('04-blend-difference-opacity-30');

  // The "Random" row keeps the picker on Random and rolls a mode.
  await page.locator('#blend').click();
  await page.locator('.blend-row.random').click();
  await settle();
  assert.equal(await page.locator('#blend').textContent(), 'Blend:\nRandom');
  await page.keyboard.press('Escape');
  await page.locator('#alpha-slider').fill('1');
});

test('rotate, flip and flatten work on the base', async () => {
  const { originalWidth: w, originalHeight: h } = await app.status();
  await page.locator('.utility[data-tag="1"]').click();
  await page.waitForFunction((h) => window.zorvex.engine.request({ type: 'status' }).then((s) => s.originalWidth === h), h);
  const turned = await app.status();
  assert.deepEqual([turned.originalWidth, turned.originalHeight], [h, w]);
  await page.locator('.utility[data-tag="3"]').click();
  await settle();
  await page.locator('.utility[data-tag="4"]').click();
  assert.equal(await app.panel().locator('.zorvex-alert-heading').textContent(), 'FLATTEN');
  assert.match(await app.panel().locator('.zorvex-alert-body').textContent(), /^This will apply the current effects to the base image/);
  await app.shot('05-flatten-confirm');
  await app.panel().locator('.zorvex-alert-button.action').click();
  await waitForInfo('EFFECTS FLATTENED');
  await settle();
  await app.shot('06-flattened');
});

test('save hands over a JPEG of the full picture and says so', async () => {
  const { originalWidth, originalHeight } = await app.status();
  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.locator('#save').click();
  const bytes = readFileSync(await (await download).path());
  assert.deepEqual([...bytes.subarray(0, 3)], [0xff, 0xd8, 0xff], 'a JPEG');
  const size = await page.evaluate(async (b64) => {
    const bitmap = await createImageBitmap(await (await fetch(`data:image/jpeg;base64,${b64}`)).blob());
    return [bitmap.width, bitmap.height];
  }, bytes.toString('base64'));
  assert.deepEqual(size, [originalWidth, originalHeight]);
  await waitForInfo('SAVED TO PHOTOS');
});

test('done goes back to the live camera', async () => {
  await page.locator('#done').click();
  await waitForMode(0);
  await app.framesGoOn();
  await app.shot('07-back-to-camera');
});

test('a picture from the library loads upright by its orientation tag; a file that is none is refused', async () => {
  const jpeg = await page.evaluate(async () => {
    const c = new OffscreenCanvas(96, 48);
    const g = c.getContext('2d');
    g.fillStyle = '#e02050';
    g.fillRect(0, 0, 48, 48);
    g.fillStyle = '#20a0f0';
    g.fillRect(48, 0, 48, 48);
    return Array.from(new Uint8Array(await (await c.convertToBlob({ type: 'image/jpeg', quality: 0.95 })).arrayBuffer()));
  });
  // Orientation 6: shown turned a quarter, so 48 wide and 96 high.
  await pick({ name: 'tagged.jpg', mimeType: 'image/jpeg', buffer: withOrientation(Buffer.from(jpeg), 6) });
  await waitForInfo('IMAGE LOADED');
  assert.equal(await mode(), 1);
  const s = await app.status();
  assert.deepEqual([s.originalWidth, s.originalHeight], [48, 96]);
  await settle();
  await app.shot('08-library-picture');

  // Something that is no picture is refused with its name, and the camera goes on.
  await page.locator('#done').click();
  await waitForMode(0);
  await pick({ name: 'notes.txt', mimeType: 'text/plain', buffer: Buffer.from('hello') });
  await waitForInfo("CAN'T OPEN NOTES.TXT");
  assert.equal(await mode(), 0);
  await app.framesGoOn(2);
});

test('randomise effects is stored, and a reload keeps the stored list', async () => {
  await page.keyboard.press('e');
  assert.equal(await info(), 'RANDOM EFFECTS');
  await settle();
  const rows = await app.effects();
  assert.equal(rows.filter((r) => r.isActive).length, 2);
  await page.keyboard.press('p');
  assert.equal(await info(), 'RANDOM PARAMETERS');
  await app.framesGoOn();
  await app.shot('09-random-effects');
  const events = await page.evaluate(() => window.zorvex.analytics.events().map((e) => e.name));
  for (const name of ['button_shutter', 'button_blend', 'button_randomEffects', 'button_randomParams', 'button_save'])
    assert.ok(events.includes(name), `analytics has ${name}`);

  await app.load();
  assert.deepEqual(await app.effects(), rows);
  assert.equal(await page.locator('dialog.zorvex-alert').count(), 0, 'the welcome is shown once');
  assert.equal(await page.evaluate(() => window.zorvex.settings.launchCount()), 2);
  await app.framesGoOn();
});

test('an engine that dies is replaced and the app carries on', async () => {
  const rows = await app.effects();
  await app.ask({ type: 'crash' }).catch(() => undefined);
  await page.waitForFunction(() => window.zorvex.engine.restarts === 1);
  await app.framesGoOn(5);
  assert.deepEqual(await app.effects(), rows);
});

test('the app opens again without the network once it has been loaded', async () => {
  await page.evaluate(() => navigator.serviceWorker.ready);
  await app.load(); // now under the service worker's control
  await page.context().setOffline(true);
  try {
    await app.load();
    await app.framesGoOn();
  } finally {
    await page.context().setOffline(false);
  }
  const manifest = await page.evaluate(async () => (await fetch('./manifest.webmanifest')).json());
  assert.equal(manifest.display, 'standalone');
  assert.ok(manifest.icons.some((i) => i.sizes === '512x512'));
});

test('landscape and desktop arrangements', async () => {
  await page.setViewportSize({ width: 844, height: 390 });
  await page.waitForTimeout(300);
  assert.equal(await page.locator('#main-stack').getAttribute('class'), 'main-stack horizontal');
  await app.framesGoOn();
  await app.shot('10-landscape');
  await page.setViewportSize({ width: 1280, height: 800 });
  await page.waitForTimeout(300);
  await app.framesGoOn();
  await app.shot('11-desktop');
});
