// The app end to end in Chromium with a fake camera playing a test card: the live feed, the keys, the
// shutter, blend and opacity, the edit tools with undo and redo, save, the last picture saved, the way
// back, the library and the files it refuses, a reload, an engine that dies, the start offline, the
// layouts before and after the script, and a camera refused, with a screenshot of each step for a
// person to look at.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, before, test } from 'node:test';

import { openApp } from './browser.mjs';
import { withOrientation } from './fixtures.mjs';

let app, page;
let savedSize; // of the picture saved, which opens again from its thumbnail
const info = () => page.locator('#info-label').textContent();
const mode = () => page.evaluate(() => window.zorvex.vc.mode);
const waitForMode = (m) => page.waitForFunction((m) => window.zorvex.vc.mode === m, m, { timeout: 15000 });
// A message on show (the text of one that went stays in the label).
const waitForInfo = (text) =>
  page.waitForFunction(
    (t) => {
      const label = document.getElementById('info-label');
      return label.textContent === t && getComputedStyle(label).opacity !== '0';
    },
    text,
    { timeout: 30000 },
  );
const infoShown = () => page.evaluate(() => getComputedStyle(document.getElementById('info-label')).opacity !== '0');
const buttonEvents = (name) => page.evaluate((n) => window.zorvex.analytics.events().filter((e) => e.name === n).length, name);

// Waits until the engine has nothing in flight, so that the canvas shows the last request.
async function settle() {
  await app.status();
  await page.waitForTimeout(100);
}

// Waits until the edit under way (an undo may first decode the still again) is rendered and shown.
async function edited() {
  await page.waitForFunction(() => !window.zorvex.vc.busy);
  await settle();
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
  // The one fake camera has nothing to flip to, and no flash.
  assert.deepEqual([await page.locator('#flip').isDisabled(), await page.locator('#flash').isDisabled()], [true, true]);
});

test('the spinner rests while live frames of a slow stack go on', async () => {
  const active = (await app.effects()).filter((r) => r.isActive).map((r) => r.name);
  await app.ask({ type: 'setActiveEffects', names: ['BITBOY', 'M0T0R'] });
  await app.framesGoOn(10);
  const spinning = [];
  for (let i = 0; i < 10; ++i) {
    spinning.push(await page.locator('#activity').isVisible());
    await page.waitForTimeout(100);
  }
  assert.deepEqual(spinning, new Array(10).fill(false));
  await app.ask({ type: 'setActiveEffects', names: active });
});

test('after a click the keys still work: Space takes a still into edit mode, full size', async () => {
  const rolls = await buttonEvents('button_randomEffects');
  await page.locator('#random-effects').click();
  assert.equal(await page.evaluate(() => document.activeElement === document.body), true, 'a click leaves no focus');
  // From the keyboard a button keeps its focus, with a ring.
  await page.keyboard.press('Tab');
  assert.equal(await page.evaluate(() => document.activeElement.matches('button:focus-visible')), true);
  await page.keyboard.press('Space');
  await waitForMode(1);
  assert.equal(await buttonEvents('button_randomEffects'), rolls + 1, 'Space pressed no button');
  await page.waitForFunction(async () => (await window.zorvex.engine.request({ type: 'status' })).originalWidth > 0);
  const s = await app.status();
  const track = await page.evaluate(() => document.getElementById('camera-video').srcObject?.getVideoTracks()[0]?.getSettings());
  assert.ok(s.originalWidth * s.originalHeight >= 480 * 360, `a still of ${s.originalWidth}x${s.originalHeight}`);
  assert.ok(!track || s.originalWidth >= Math.min(track.width, track.height));
  await page.waitForTimeout(400);
  assert.equal(await page.locator('#edit-controls').isVisible(), true);
  assert.equal(await infoShown(), false, 'TAKE PICTURE went with photo mode');
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
  const selected = () => page.locator('.blend-row[aria-selected="true"]').textContent();
  assert.equal(await selected(), 'Difference');
  const blended = await app.canvasPrint();
  assert.notEqual(blended, before);
  // A tap beside the panel closes it and does nothing more.
  await page.mouse.click(20, 20);
  await page.waitForFunction(() => !document.getElementById('blend-picker-holder').classList.contains('open'));
  assert.equal(await mode(), 1);
  // From the keyboard: the arrows go from row to row (up and down by a line of the grid), Enter chooses.
  await page.keyboard.press('b');
  const focused = () => page.evaluate(() => [document.activeElement.textContent, document.activeElement.offsetTop]);
  const [, top] = await focused();
  await page.keyboard.press('ArrowDown');
  assert.ok((await focused())[1] > top);
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('Enter');
  await settle();
  assert.deepEqual([await page.locator('#blend').textContent(), await selected()], ['Blend:\nExclusion', 'Exclusion']);
  await page.locator('.blend-row', { hasText: 'Difference' }).click();
  await page.keyboard.press('Escape');
  await settle();
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

test('rotate, flip and flatten work on the base, and undo and redo take them back and make them again', async () => {
  const { originalWidth: w, originalHeight: h } = await app.status();
  // Effects that draw the same picture each time (the stack rolled by the click before may have had
  // one that flickers), so that pictures can be compared.
  await app.ask({ type: 'setActiveEffects', names: ['VETH', 'AGENCY'] });
  await page.evaluate(() => window.zorvex.vc.renderInBackground());
  await settle();
  const taken = await app.canvasPrint();
  assert.equal(await page.locator('#undo').isDisabled(), true);
  await page.locator('.utility[data-tag="1"]').click();
  await edited();
  const turned = await app.status();
  assert.deepEqual([turned.originalWidth, turned.originalHeight], [h, w]);
  await page.locator('.utility[data-tag="3"]').click();
  await edited();
  const flipped = await app.canvasPrint();
  await page.locator('.utility[data-tag="4"]').click();
  assert.equal(await app.panel().locator('.zorvex-alert-heading').textContent(), 'FLATTEN');
  assert.match(await app.panel().locator('.zorvex-alert-body').textContent(), /^This will apply the current effects to the base image/);
  await app.shot('05-flatten-confirm');
  await app.panel().locator('.zorvex-alert-button.action').click();
  await waitForInfo('EFFECTS FLATTENED');
  await edited();
  const flattened = await app.canvasPrint();
  assert.notEqual(flattened, flipped);
  await app.shot('06-flattened');

  // The flatten taken back is the picture before it, and made again the same flattened picture.
  await page.keyboard.press('Control+z');
  await edited();
  assert.equal(await app.canvasPrint(), flipped);
  assert.equal(await page.locator('#redo').isEnabled(), true);
  await page.keyboard.press('Control+Shift+z');
  await edited();
  assert.equal(await app.canvasPrint(), flattened);
  assert.equal(await page.locator('#redo').isDisabled(), true);
  // Back to the still as it was taken, by the button.
  for (let i = 0; i < 3; ++i) {
    await page.locator('#undo').click();
    await edited();
  }
  assert.deepEqual(await app.status().then((s) => [s.originalWidth, s.originalHeight]), [w, h]);
  assert.equal(await app.canvasPrint(), taken);
  assert.equal(await page.locator('#undo').isDisabled(), true);
  await app.shot('06b-undone');
});

test('save hands over one JPEG of the full picture, however often pressed, and says so', async () => {
  const { originalWidth, originalHeight } = await app.status();
  const downloads = [];
  const count = (d) => downloads.push(d);
  page.on('download', count);
  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.locator('#save').dblclick();
  const bytes = readFileSync(await (await download).path());
  assert.deepEqual([...bytes.subarray(0, 3)], [0xff, 0xd8, 0xff], 'a JPEG');
  const size = await page.evaluate(async (b64) => {
    const bitmap = await createImageBitmap(await (await fetch(`data:image/jpeg;base64,${b64}`)).blob());
    return [bitmap.width, bitmap.height];
  }, bytes.toString('base64'));
  assert.deepEqual(size, [originalWidth, originalHeight]);
  savedSize = size;
  await waitForInfo('SAVED TO PHOTOS');
  await page.waitForTimeout(1000);
  page.off('download', count);
  assert.equal(downloads.length, 1);
});

test('done goes back to the live camera, taking the edit message along; the last picture saved opens again', async () => {
  await page.locator('.utility[data-tag="5"]').click();
  assert.equal(await info(), 'PREPARING IMAGE...');
  await page.locator('#done').click();
  await waitForMode(0);
  assert.equal(await infoShown(), false);
  await app.framesGoOn();
  await page.waitForFunction(() => document.querySelector('#last-shot canvas') !== null);
  await app.shot('07-back-to-camera');

  await page.locator('#last-shot').click();
  await waitForInfo('IMAGE LOADED');
  assert.equal(await mode(), 1);
  assert.deepEqual(await app.status().then((s) => [s.originalWidth, s.originalHeight]), savedSize);
  await settle();
  await app.shot('07b-last-picture-again');
  await page.locator('#done').click();
  await waitForMode(0);
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

  // A file that can't be worked on is refused with its name and the reason, and the camera goes on.
  await page.locator('#done').click();
  await waitForMode(0);
  const dot = await page.evaluate(async () => {
    const c = new OffscreenCanvas(1, 1);
    c.getContext('2d').fillRect(0, 0, 1, 1);
    return Array.from(new Uint8Array(await (await c.convertToBlob({ type: 'image/png' })).arrayBuffer()));
  });
  const u32 = (n) => [n >>> 24, (n >>> 16) & 255, (n >>> 8) & 255, n & 255];
  const huge = Buffer.from([0x89, ...Buffer.from('PNG\r\n\x1a\n'), ...u32(13), ...Buffer.from('IHDR'), ...u32(20000), ...u32(20000), 8, 6, 0, 0, 0]);
  const refused = [
    ['notes.txt', 'text/plain', Buffer.from('hello'), 'NOT A PICTURE'],
    ['fake.jpg', 'image/jpeg', Buffer.from('this is no photograph'), 'NOT A PICTURE'],
    ['dot.png', 'image/png', Buffer.from(dot), 'TOO SMALL (AT LEAST 16 PIXELS A SIDE)'],
    ['broken.jpg', 'image/jpeg', Buffer.concat([Buffer.from([0xff, 0xd8, 0xff, 0xe0, 0, 16]), Buffer.from('JFIF'), Buffer.alloc(400, 0x5a)]), 'DAMAGED'],
    ['huge.png', 'image/png', huge, 'TOO LARGE (AT MOST 100 MEGAPIXELS)'],
  ];
  for (const [name, mimeType, buffer, reason] of refused) {
    await pick({ name, mimeType, buffer });
    await waitForInfo(`CAN'T OPEN ${name.toUpperCase()}: ${reason}`);
    assert.equal(await mode(), 0);
  }
  await app.shot('08b-refused');
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

test('the app opens again without the network once it has been loaded, manifest and icons included', async () => {
  await page.evaluate(() => navigator.serviceWorker.ready);
  await app.load(); // now under the service worker's control
  const failed = [];
  const onFailed = (request) => request.url().includes('/zorvex/') || failed.push(request.url());
  // The server's message and pages under /zorvex/ are not kept offline; their failures are expected.
  const onConsole = (message) =>
    message.type() === 'error' && !message.location().url.includes('/zorvex/') && failed.push(message.text());
  page.on('requestfailed', onFailed);
  page.on('console', onConsole);
  await page.context().setOffline(true);
  try {
    await app.load();
    await app.framesGoOn();
    const shell = await page.evaluate(async () => {
      const manifest = await (await fetch(document.querySelector('link[rel="manifest"]').href)).json();
      const icons = await Promise.all(manifest.icons.map(async (i) => (await fetch(i.src)).ok));
      const linked = await Promise.all([...document.querySelectorAll('link[rel~="icon"]')].map(async (l) => (await fetch(l.href)).ok));
      return { display: manifest.display, icons: [...icons, ...linked] };
    });
    assert.equal(shell.display, 'standalone');
    assert.deepEqual(shell.icons, [true, true, true, true]);
  } finally {
    await page.context().setOffline(false);
    page.off('requestfailed', onFailed);
    page.off('console', onConsole);
  }
  assert.deepEqual(failed, []);
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

test('with the camera refused: a fixed number of tries, then a way to allow it; on a desktop, side by side from the first paint', async () => {
  const refused = await openApp({ refuseCamera: true, viewport: { width: 1280, height: 800 }, open: false });
  const p = refused.page;
  try {
    const lines = [];
    p.on('console', (message) => lines.push(message.text()));
    // The page as it is before its script runs.
    let release;
    const held = new Promise((resolve) => (release = resolve));
    await p.route(/\/assets\/main-[^/]*\.js$/, async (route) => {
      await held;
      await route.continue();
    });
    await p.goto(refused.url, { waitUntil: 'commit' });
    await p.waitForFunction(() => document.styleSheets.length > 0 && getComputedStyle(document.body).margin === '0px');
    const first = await p.evaluate(() => ({
      direction: getComputedStyle(document.getElementById('main-stack')).flexDirection,
      titles: [...document.querySelectorAll('.top-row button, #save')].map((b) => b.textContent.replace(/\s+/g, ' ')),
    }));
    assert.deepEqual(first, {
      direction: 'row',
      titles: ['Randomize Effects', 'Randomize Params', 'Blend: Normal', 'Effects Stack', 'SAVE IMAGE'],
    });
    await refused.shot('13-desktop-before-the-script');
    release();
    await p.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 60000 });

    await p.waitForFunction(() => !document.getElementById('no-devices').hidden, null, { timeout: 30000 });
    const tries = () => lines.filter((l) => l.startsWith('No camera')).length;
    const given = tries();
    await p.waitForTimeout(1500);
    assert.equal(tries(), given, 'no tries after giving up');
    assert.ok(given >= 1 && given <= 21, `${given} tries`);
    const events = await p.evaluate(() => window.zorvex.analytics.events().map((e) => e.name));
    assert.equal(events.filter((e) => e === 'event_NO DEVICES FOUND MAX RETRES HIT').length, 1);
    assert.match(await p.locator('#no-devices').textContent(), /allow the camera .* then reload the page/);
    assert.equal(await p.locator('#reload').isVisible(), true);
    assert.equal(await p.evaluate(() => window.zorvex.vc.busy), false);
    await refused.skipTours();
    await refused.shot('14-camera-refused');
    await p.locator('#shutter').click();
    await p.waitForTimeout(300);
    assert.equal(await p.evaluate(() => window.zorvex.vc.mode), 0);
  } finally {
    await refused.close();
  }
});
