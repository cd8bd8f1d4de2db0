// The app end to end in Chromium with a fake camera playing a test card: the live feed, the shutter,
// the library, blend and opacity, the edit tools, save, the way back, a reload, and an engine that
// dies. Screenshots go to the folder printed at the start (ZORVEX_SCREENSHOTS, else
// build/e2e-screenshots), so a person can look.
import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, readFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { launch, repo, serve } from './browser.mjs';
import { withOrientation, writeY4m } from './fixtures.mjs';

const shots = process.env.ZORVEX_SCREENSHOTS ?? join(repo, 'build/e2e-screenshots');
mkdirSync(shots, { recursive: true });
console.log(`Screenshots: ${shots}`);

const work = mkdtempSync(join(tmpdir(), 'zorvex-e2e-'));
let server, browser, page;
const pageErrors = [];

const shot = (name) => page.screenshot({ path: join(shots, `${name}.png`) });
const info = () => page.locator('#info-label').textContent();
const status = () => page.evaluate(() => window.zorvex.engine.request({ type: 'status' }));
const effects = () => page.evaluate(async () => (await window.zorvex.engine.request({ type: 'effects' })).rows);
const framesShown = () => page.evaluate(() => window.zorvex.canvas.framesShown);
const mode = () => page.evaluate(() => window.zorvex.vc.mode);

// A fingerprint of what the canvas shows.
const canvasPrint = () =>
  page.evaluate(() => {
    const c = document.getElementById('picture');
    const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
    let h = 0;
    for (let i = 0; i < d.length; i += 97) h = (h * 31 + d[i]) >>> 0;
    return h;
  });

async function waitForFrames(more = 3) {
  const start = await framesShown();
  await page.waitForFunction((n) => window.zorvex.canvas.framesShown >= n, start + more, { timeout: 15000 });
}

// Waits until the engine has nothing in flight, so that the canvas shows the last request.
async function settle() {
  await page.evaluate(() => window.zorvex.engine.request({ type: 'status' }));
  await page.waitForTimeout(100);
}

// The library button, and a file chosen in the picker it opens.
async function pick(file) {
  const chooser = page.waitForEvent('filechooser');
  await page.locator('#library').click();
  await (await chooser).setFiles(file);
}

async function open() {
  page = browser.context.pages()[0] ?? (await browser.context.newPage());
  page.on('pageerror', (e) => pageErrors.push(e.message));
  await page.goto(server.url);
  await page.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 20000 });
}

before(async () => {
  const y4m = join(work, 'card.y4m');
  writeY4m(y4m, 480, 360);
  server = await serve();
  browser = await launch({ y4m });
  await open();
});

after(async () => {
  await browser?.close();
  server?.stop();
  assert.deepEqual(pageErrors, [], 'the page threw');
});

test('the first start greets, counts the launch and shows effected live frames', async () => {
  await page.locator('#alert-action').click();
  assert.equal(await page.locator('#alert').isHidden(), true);
  await waitForFrames(5);
  const defaults = await page.evaluate(() => window.zorvex.settings.launchCount());
  assert.equal(defaults, 1);
  // Held down, the picture shows the base alone; let go, the effects again.
  const box = await page.locator('#picture').boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.evaluate(() => (window.zorvex.vc.camera.useFrameProcessingCallbacks = false));
  await settle();
  const kernels = (await status()).kernelsRun;
  const effected = await canvasPrint();
  await page.mouse.down();
  await settle();
  const base = await canvasPrint();
  await page.mouse.up();
  await settle();
  assert.notEqual(base, effected, 'the effects change the live picture');
  assert.equal(await canvasPrint(), effected);
  assert.equal((await status()).kernelsRun, kernels, 'holding the picture runs no kernel');
  await page.evaluate(() => (window.zorvex.vc.camera.useFrameProcessingCallbacks = true));
  await waitForFrames(3);
  await shot('01-live-feed');
});

test('the shutter takes a full-size still into edit mode', async () => {
  await page.keyboard.press('Space');
  await page.waitForFunction(() => window.zorvex.vc.mode === 1, null, { timeout: 15000 });
  await page.waitForFunction(async () => (await window.zorvex.engine.request({ type: 'status' })).originalWidth > 0);
  const s = await status();
  const track = await page.evaluate(() => {
    const t = document.getElementById('camera-video').srcObject?.getVideoTracks()[0];
    return t ? t.getSettings() : null;
  });
  assert.ok(s.originalWidth * s.originalHeight >= 480 * 360, `a still of ${s.originalWidth}x${s.originalHeight}`);
  assert.ok(track === null || s.originalWidth >= Math.min(track.width, track.height));
  await page.waitForTimeout(400);
  assert.equal(await page.locator('#edit-controls').isVisible(), true);
  await shot('02-edit-mode');
});

test('blend and opacity change the picture without a new run of the stack', async () => {
  await settle();
  const before = await canvasPrint();
  const kernels = (await status()).kernelsRun;
  await page.locator('#blend').click();
  await page.waitForTimeout(300);
  await shot('03-blend-panel');
  await page.locator('.blend-row', { hasText: 'Difference' }).click();
  await settle();
  assert.equal(await page.locator('#blend').textContent(), 'Blend:\nDifference');
  const blended = await canvasPrint();
  assert.notEqual(blended, before);
  await page.keyboard.press('Escape');
  await page.locator('#alpha-slider').fill('0.3');
  await settle();
  assert.equal(await info(), 'OPACITY 30%');
  assert.notEqual(await canvasPrint(), blended);
  assert.equal((await status()).kernelsRun, kernels, 'no kernel ran for blend or opacity');
  await shot('04-blend-difference-opacity-30');

  // The "Random" row keeps the picker on Random and rolls a mode.
  await page.locator('#blend').click();
  await page.locator('.blend-row.random').click();
  await settle();
  assert.equal(await page.locator('#blend').textContent(), 'Blend:\nRandom');
  await page.keyboard.press('Escape');
  await page.locator('#alpha-slider').fill('1');
});

test('rotate, flip and flatten work on the base', async () => {
  const { originalWidth: w, originalHeight: h } = await status();
  await page.locator('.utility[data-tag="1"]').click();
  await page.waitForFunction((h) => window.zorvex.engine.request({ type: 'status' }).then((s) => s.originalWidth === h), h);
  assert.deepEqual([(await status()).originalWidth, (await status()).originalHeight], [h, w]);
  await page.locator('.utility[data-tag="3"]').click();
  await settle();
  await page.locator('.utility[data-tag="4"]').click();
  assert.equal(await page.locator('#alert-title').textContent(), 'FLATTEN');
  assert.equal(
    await page.locator('#alert-body').textContent(),
    'This will apply the current effects to the base image, effectively adding another layer.',
  );
  await shot('05-flatten-confirm');
  await page.locator('#alert-action').click();
  await page.waitForFunction(() => document.getElementById('info-label').textContent === 'EFFECTS FLATTENED', null, {
    timeout: 30000,
  });
  await settle();
  await shot('06-flattened');
});

test('save hands over a JPEG of the full picture and says so', async () => {
  const { originalWidth, originalHeight } = await status();
  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.locator('#save').click();
  const file = await (await download).path();
  const bytes = readFileSync(file);
  assert.deepEqual([...bytes.subarray(0, 3)], [0xff, 0xd8, 0xff], 'a JPEG');
  const size = await page.evaluate(async (b64) => {
    const blob = await (await fetch(`data:image/jpeg;base64,${b64}`)).blob();
    const bitmap = await createImageBitmap(blob);
    return [bitmap.width, bitmap.height];
  }, bytes.toString('base64'));
  assert.deepEqual(size, [originalWidth, originalHeight]);
  await page.waitForFunction(() => document.getElementById('info-label').textContent === 'SAVED TO PHOTOS');
});

test('done goes back to the live camera', async () => {
  await page.locator('#done').click();
  await page.waitForFunction(() => window.zorvex.vc.mode === 0);
  await waitForFrames(3);
  await shot('07-back-to-camera');
});

test('a picture from the library loads upright by its orientation tag', async () => {
  const jpeg = await page.evaluate(async () => {
    const c = new OffscreenCanvas(96, 48);
    const g = c.getContext('2d');
    g.fillStyle = '#e02050';
    g.fillRect(0, 0, 48, 48);
    g.fillStyle = '#20a0f0';
    g.fillRect(48, 0, 48, 48);
    const bytes = new Uint8Array(await (await c.convertToBlob({ type: 'image/jpeg', quality: 0.95 })).arrayBuffer());
    return Array.from(bytes);
  });
  // Orientation 6: shown turned a quarter, so 48 wide and 96 high.
  const tagged = withOrientation(Buffer.from(jpeg), 6);
  await pick({ name: 'tagged.jpg', mimeType: 'image/jpeg', buffer: tagged });
  await page.waitForFunction(() => document.getElementById('info-label').textContent === 'IMAGE LOADED');
  assert.equal(await mode(), 1);
  const s = await status();
  assert.deepEqual([s.originalWidth, s.originalHeight], [48, 96]);
  await settle();
  await shot('08-library-picture');

  // Something that is no picture is refused with its name, and the camera goes on.
  await page.locator('#done').click();
  await page.waitForFunction(() => window.zorvex.vc.mode === 0);
  await pick({ name: 'notes.txt', mimeType: 'text/plain', buffer: Buffer.from('hello') });
  await page.waitForFunction(() => document.getElementById('info-label').textContent === "CAN'T OPEN NOTES.TXT");
  assert.equal(await mode(), 0);
  await waitForFrames(2);
});

test('randomise effects is stored, and a reload keeps the stored list', async () => {
  await page.keyboard.press('e');
  assert.equal(await info(), 'RANDOM EFFECTS');
  await settle();
  const rows = await effects();
  assert.equal(rows.filter((r) => r.isActive).length, 2);
  await page.keyboard.press('p');
  assert.equal(await info(), 'RANDOM PARAMETERS');
  await waitForFrames(3);
  await shot('09-random-effects');
  const events = await page.evaluate(() => window.zorvex.analytics.events().map((e) => e.name));
  for (const name of ['button_shutter', 'button_blend', 'button_randomEffects', 'button_randomParams', 'button_save'])
    assert.ok(events.includes(name), `analytics has ${name}`);

  await page.reload();
  await page.waitForFunction(() => window.zorvex !== undefined);
  assert.deepEqual(await effects(), rows);
  assert.equal(await page.locator('#alert').isHidden(), true, 'the welcome is shown once');
  assert.equal(await page.evaluate(() => window.zorvex.settings.launchCount()), 2);
  await waitForFrames(3);
});

test('an engine that dies is replaced and the app carries on', async () => {
  const rows = await effects();
  await page.evaluate(() => window.zorvex.engine.request({ type: 'crash' }).catch(() => undefined));
  await page.waitForFunction(() => window.zorvex.engine.restarts === 1);
  await waitForFrames(5);
  assert.deepEqual(await effects(), rows);
});

test('the app opens again without the network once it has been loaded', async () => {
  await page.evaluate(() => navigator.serviceWorker.ready);
  await page.reload(); // now under the service worker's control
  await page.waitForFunction(() => window.zorvex !== undefined);
  await browser.context.setOffline(true);
  try {
    await page.reload();
    await page.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 15000 });
    await waitForFrames(3);
  } finally {
    await browser.context.setOffline(false);
  }
  const manifest = await page.evaluate(async () => (await fetch('./manifest.webmanifest')).json());
  assert.equal(manifest.display, 'standalone');
  assert.ok(manifest.icons.some((i) => i.sizes === '512x512'));
});

test('landscape and desktop arrangements', async () => {
  await page.setViewportSize({ width: 844, height: 390 });
  await page.waitForTimeout(300);
  assert.equal(await page.locator('#main-stack').getAttribute('class'), 'main-stack horizontal');
  await waitForFrames(3);
  await shot('10-landscape');
  await page.setViewportSize({ width: 1280, height: 800 });
  await page.waitForTimeout(300);
  await waitForFrames(3);
  await shot('11-desktop');
});
