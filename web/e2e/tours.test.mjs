// The guided tours end to end in Chromium: the welcome and the camera tour on the first launch, the
// edit tour after the first photo, the Arrange tour on the first opening of the effects stack, every
// bubble inside the window and pointing at its control at phone, landscape and desktop sizes, all three
// again after a reset, none on a later launch; and the user's guide with its pictures.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { openApp } from './browser.mjs';

const phone = { width: 390, height: 844 };
const landscape = { width: 844, height: 390 };
const desktop = { width: 1280, height: 800 };

const cameraSteps = [
  ['#random-effects', 'Tap here to randomize BOTH the active effects and their parameters'],
  ['#random-params', 'Tap here to randomize ONLY effect parameters'],
  ['#blend', 'Select a blend mode to control how the filtered image combines with the original image'],
  ['#effects-arrange', 'Tap here to access the effects stack, allowing you to arrange and activate filters at will'],
  ['#alpha-slider', 'Adjust the alpha (opacity) of the effected image with this slider'],
  ['#library', 'ZORVEX will show you a live camera feed by default, but you may load an image from your Photo Library here'],
];
const editSteps = [
  ['#top', 'Tap the image to momentariy see the original image underneath'],
  ['.utility-row', 'You may change effects and blending after the image is captured'],
  ['#done', "Tap 'Camera' to go back to the camera or load another image"],
];
const arrangeSteps = [
  [null, 'Use this screen to activate and arrange the effects.\n\nThe order does matter, effects applied from top-to-bottom.'],
  [null, 'You may also arrange the effects by lightly dragging from the right side'],
  ['#arrange-list', 'All available built-in and user-saved effects presets will be shown in this table.  Tap one of the rows to activate it'],
];

let app, page;
const consoleLines = [];

// The tour's step as it stands on the page, with the rect of the control it names.
function currentStep(anchor) {
  return page.evaluate((selector) => {
    const box = (e) => {
      const b = e.getBoundingClientRect();
      return { x: b.left, y: b.top, w: b.width, h: b.height };
    };
    const layer = document.querySelector('.walkthrough');
    if (!layer || layer.hidden) return null;
    const arrow = layer.querySelector('.walkthrough-arrow');
    return {
      text: layer.querySelector('.walkthrough-text').textContent,
      focused: document.activeElement === layer.querySelector('.walkthrough-bubble'),
      bubble: box(layer.querySelector('.walkthrough-bubble')),
      arrow: arrow.hidden ? null : { ...box(arrow), edge: arrow.dataset.edge },
      hole: box(layer.querySelector('.walkthrough-hole')),
      anchor: selector ? box(document.querySelector(selector)) : null,
      viewport: { w: window.innerWidth, h: window.innerHeight },
    };
  }, anchor);
}

// Checks the step on show: its text, the bubble inside the window, and the arrow's tip on the control.
async function checkStep([anchor, text], label) {
  await page.waitForTimeout(600); // the step's move ends
  const s = await currentStep(anchor);
  assert.ok(s, `${label}: a step is on show`);
  assert.equal(s.text, text, label);
  assert.equal(s.focused, true, `${label}: the bubble has the focus`);
  const { bubble: b, viewport: v } = s;
  assert.ok(b.x >= 0 && b.y >= 0 && b.x + b.w <= v.w && b.y + b.h <= v.h, `${label}: the bubble ${JSON.stringify(b)} is inside ${JSON.stringify(v)}`);
  if (!anchor) {
    assert.equal(s.arrow, null, `${label}: a step with no control has no arrow`);
    return;
  }
  const a = s.anchor;
  const near = (p, q) => Math.abs(p - q) <= 1;
  assert.ok(near(s.hole.x, a.x) && near(s.hole.y, a.y) && near(s.hole.w, a.w) && near(s.hole.h, a.h), `${label}: the cut-out is the control`);
  if (!s.arrow) {
    // Over a large control: on its middle.
    const cx = b.x + b.w / 2;
    const cy = b.y + b.h / 2;
    assert.ok(cx > a.x && cx < a.x + a.w && cy > a.y && cy < a.y + a.h, `${label}: the bubble is over the control`);
    return;
  }
  const tipX = s.arrow.x + s.arrow.w / 2;
  const tipY = s.arrow.edge === 'top' ? s.arrow.y : s.arrow.y + s.arrow.h;
  assert.ok(tipX >= a.x - 1 && tipX <= a.x + a.w + 1, `${label}: the arrow is over the control across`);
  assert.ok(tipY >= a.y - 1 && tipY <= a.y + a.h + 1, `${label}: the arrow's tip touches the control`);
}

// Runs the tour on show through its steps, by a tap, Enter, Space and → in turn.
async function runTour(steps, size, shot) {
  const keys = ['Enter', ' ', 'ArrowRight'];
  for (let i = 0; i < steps.length; ++i) {
    await checkStep(steps[i], `${size} step ${i + 1}`);
    if (i === 0) await app.shot(`tour-${shot}-${size}`);
    if (i % 4 === 3) await page.mouse.click(5, 5);
    else await page.keyboard.press(keys[i % 4]);
  }
  await page.waitForFunction(() => document.querySelector('.walkthrough').hidden);
}

const noTour = () => page.evaluate(() => !window.zorvex.walkthrough.isRunning);

async function takePhoto() {
  await page.keyboard.press('Space');
  await page.waitForFunction(() => window.zorvex.vc.mode === 1, null, { timeout: 15000 });
  await page.waitForTimeout(400); // the slide, then the tour's start
}
async function backToCamera() {
  await page.locator('#done').click();
  await page.waitForFunction(() => window.zorvex.vc.mode === 0);
  await page.waitForTimeout(400);
}
async function openArrange() {
  await page.locator('#effects-arrange').click();
  await page.waitForTimeout(500); // the slide, then the tour's start
}
async function closeArrange() {
  await page.locator('#arrange-done').click();
  await page.waitForFunction(() => document.getElementById('arrange').hidden);
}

before(async () => {
  app = await openApp();
  page = app.page;
  page.on('console', (m) => consoleLines.push(m.text()));
});

after(() => app?.close());

test('a first launch greets, and "Ok" starts the camera tour, each bubble at its control', async () => {
  await app.panel().waitFor();
  assert.deepEqual(await page.locator('.zorvex-alert-heading').allTextContents(), ['WELCOME TO ZORVEX']);
  assert.equal(await noTour(), true, 'no tour before "Ok"');
  await app.panel().locator('.zorvex-alert-button.action').click();
  await runTour(cameraSteps, 'phone', 'camera');
  assert.ok(consoleLines.includes('Walkthrough Complete'));
});

test('the first photo starts the edit tour at the end of the slide, and the first effects stack its tour', async () => {
  await takePhoto();
  await runTour(editSteps, 'phone', 'edit');
  await backToCamera();
  await openArrange();
  await runTour(arrangeSteps, 'phone', 'arrange');
  await closeArrange();
});

test('after a reset all three run again; at desktop and landscape sizes every bubble stays by its control', async () => {
  await page.evaluate(() => window.zorvex.settings.resetTutorials());
  await app.status(); // the flags are stored
  await page.setViewportSize(desktop);
  await app.load();
  await app.panel().locator('.zorvex-alert-button.action').click();
  // The first step laid out again for a window turned to landscape, and back.
  await page.setViewportSize(landscape);
  await checkStep(cameraSteps[0], 'landscape step 1');
  await app.shot('tour-camera-landscape');
  await page.setViewportSize(desktop);
  await runTour(cameraSteps, 'desktop', 'camera');
  await takePhoto();
  await runTour(editSteps, 'desktop', 'edit');
  await backToCamera();
  await openArrange();
  await runTour(arrangeSteps, 'desktop', 'arrange');
  await closeArrange();
});

test('Escape ends a tour where it stands', async () => {
  await page.evaluate(() => window.zorvex.settings.resetTutorials());
  await app.status();
  await app.load();
  await app.panel().locator('.zorvex-alert-button.action').click();
  await checkStep(cameraSteps[0], 'step 1');
  await page.keyboard.press('Escape');
  await page.waitForFunction(() => document.querySelector('.walkthrough').hidden);
  assert.equal(await page.evaluate(() => window.zorvex.settings.hasShownIntro()), true);
  await page.setViewportSize(phone);
});

test('a later launch shows no tour', async () => {
  await page.evaluate(() => {
    const s = window.zorvex.settings;
    s.setHasShownEditControls();
    s.setHasShownArrangeTutorial();
  });
  await app.status();
  await app.load();
  await page.waitForTimeout(800);
  assert.equal(await page.locator('dialog.zorvex-alert').count(), 0);
  assert.equal(await noTour(), true);
  await takePhoto();
  assert.equal(await noTour(), true);
  await backToCamera();
  await openArrange();
  assert.equal(await noTour(), true);
  await closeArrange();
});

test('the guide opens from the menu with a picture of every effect and blend mode, at the top each time', async () => {
  for (const [size, viewport] of [['phone', phone], ['desktop', desktop]]) {
    await page.setViewportSize(viewport);
    await page.locator('#menu-button').click();
    await page.locator('.menu-tab', { hasText: 'Guide' }).click();
    const guide = page.frameLocator('#guide-frame');
    await guide.locator('h1').waitFor();
    const shown = await page.evaluate(async () => {
      const doc = document.getElementById('guide-frame').contentDocument;
      const images = [...doc.images];
      await Promise.all(images.map((i) => i.decode().catch(() => undefined)));
      const effects = [...doc.querySelectorAll('h3 + .grid figcaption')].map((c) => c.firstChild.textContent);
      return { loaded: images.filter((i) => i.naturalWidth > 0).length, total: images.length, effects };
    });
    assert.equal(shown.total, 1 + 18 + 34);
    assert.equal(shown.loaded, shown.total, 'every picture of the guide loads');
    assert.equal(new Set(shown.effects).size, 34);
    for (const name of ['GRABOID', '2600++', 'VAN STROKE', 'B∑AMRID∑R', '§P∆Iƒ']) assert.ok(shown.effects.includes(name), name);
    await app.shot(`guide-${size}`);
    await page.evaluate(() => document.getElementById('guide-frame').contentWindow.scrollTo(0, 3000));
    await guide.locator('#effects').scrollIntoViewIfNeeded();
    await app.shot(`guide-effects-${size}`);
    await page.locator('.menu-tab', { hasText: 'Links' }).click();
    await page.locator('.menu-tab', { hasText: 'Guide' }).click();
    await page.waitForFunction(() => document.getElementById('guide-frame').contentWindow.scrollY === 0, null, { timeout: 5000 });
    await page.keyboard.press('Escape');
    await page.waitForFunction(() => document.getElementById('menu').hidden);
  }
});
