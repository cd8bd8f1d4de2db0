// The looks' logic on the page against a recording view and a fake engine: the offer of a picked
// picture's look and what "Use this look" sets, the question before a link's look is used, and "Copy
// link".
import { beforeEach, describe, expect, it } from 'vitest';

import type { LookReplies } from '../src/engine/shared/look-protocol';
import type { EngineRequest } from '../src/engine/shared/protocol';
import { Mode, type Alert } from '../src/screens/camera-inteface-vc';
import type { EffectedImageView } from '../src/screens/effected-image-view';
import { LookController, type LookScreen, type LookView } from '../src/screens/look-controller';
import { FakeEngine, picture, recordingView, type Recording } from './fakes';

const look = JSON.stringify({ zorvexLook: 1, effects: ['VETH', 'KAL1D0'], seed: '5', blend: 'Hue', opacity: 0.6 });

class Screen implements LookScreen {
  mode = Mode.edit;
  shouldRandomizeBlendMode = true;
  blendModeText = 'Blend:\nRandom';
  infos: string[] = [];
  alerts: Alert[] = [];
  rows: number[] = [];
  backs = 0;
  view = { showAlert: (a: Alert) => this.alerts.push(a), selectBlendRow: (row: number) => this.rows.push(row) };
  showInfoMessage(text: string) {
    this.infos.push(text);
  }
  backToCamera() {
    this.backs += 1;
    this.mode = Mode.photo;
  }
}

let engine: FakeEngine;
let screen: Screen;
let ui: Recording<LookView>;
let copied: string[];
let clipboardWorks: boolean;
let pictureLook: LookReplies['lookFromPicture'];
let imageView: EffectedImageView;
let controller: LookController;

beforeEach(() => {
  copied = [];
  clipboardWorks = true;
  pictureLook = { status: 'look', look, error: null };
  engine = new FakeEngine((r: EngineRequest) => {
    switch (r.type) {
      case 'lookFromPicture':
        return pictureLook;
      case 'parseLook':
        return r.text === 'AQID' ? { look, error: null } : { look: null, error: 'the look is damaged' };
      case 'applyLook':
        return { applied: { blendIndex: 8, opacity: 0.6, seed: '5', presetAdded: true }, error: null };
      case 'currentLook':
        return { text: 'AQID' };
      default:
        return { picture: picture() };
    }
  });
  screen = new Screen();
  ui = recordingView<LookView>({
    copyText: async (text: string) => {
      if (clipboardWorks) copied.push(text);
      return clipboardWorks;
    },
  });
  imageView = engine.imageView();
  controller = new LookController(engine.client, imageView, screen, ui.view, () => 'http://localhost:8080/', () => undefined);
});

describe('a picked picture with a look', () => {
  it('is offered, and "Use this look" sets the list, vector, blend and opacity and goes back to the live feed', async () => {
    await controller.pictureLoaded(new Blob(['jpeg']));
    expect(ui.last.setOfferShown).toBe(true);
    expect(screen.infos).toEqual(['This picture carries a look']);

    await controller.useOfferedLook();
    expect(engine.of('applyLook')).toEqual([{ type: 'applyLook', text: look, withEdits: false }]);
    expect(ui.last.setOfferShown).toBe(false);
    expect([screen.shouldRandomizeBlendMode, screen.blendModeText, screen.rows]).toEqual([false, 'Blend:\nHue', [8]]);
    expect([imageView.blendIndex, imageView.layerAlpha, imageView.controlSeed]).toEqual([8, 0.6, '5']);
    expect([ui.last.setOpacity, ui.last.setSeedText]).toEqual([0.6, 'seed 5']);
    expect(screen.backs).toBe(1);
    expect(screen.infos.at(-1)).toBe('Look applied: preset FROM PHOTO added');
    // Once used, the offer is gone.
    await controller.useOfferedLook();
    expect(engine.of('applyLook')).toHaveLength(1);
  });

  it('is not offered without a look, nor after the way back; a damaged look is said to be so', async () => {
    pictureLook = { status: 'none', look: null, error: null };
    await controller.pictureLoaded(new Blob(['jpeg']));
    expect([ui.last.setOfferShown, screen.infos]).toEqual([false, []]);

    pictureLook = { status: 'look', look, error: null };
    await controller.pictureLoaded(new Blob(['jpeg']));
    controller.modeChanged(Mode.photo);
    expect(ui.last.setOfferShown).toBe(false);
    await controller.useOfferedLook();
    expect(engine.of('applyLook')).toHaveLength(0);

    pictureLook = { status: 'error', look: null, error: 'the PNG is damaged' };
    await controller.pictureLoaded(new Blob(['png']));
    expect(screen.infos.at(-1)).toBe("This picture's look can't be read");
  });
});

describe('links', () => {
  it('ask before a look is used, and say when one is damaged', async () => {
    screen.mode = Mode.photo;
    await controller.linkOpened('#other');
    await controller.linkOpened('#look=bad');
    expect(engine.of('parseLook')).toHaveLength(1);
    expect(screen.infos).toEqual(["This link's look can't be read"]);

    await controller.linkOpened('#look=AQID');
    const alert = screen.alerts[0]!;
    expect([alert.title, alert.body, alert.cancel, alert.action]).toEqual([
      'USE THIS LOOK?',
      'This link carries a look: VETH, KAL1D0; blend Hue at 60%. Use it on the camera?',
      'Cancel',
      'Use this look',
    ]);
    expect(engine.of('applyLook')).toHaveLength(0);
    alert.onAction();
    await Promise.resolve();
    expect(engine.of('applyLook')).toEqual([{ type: 'applyLook', text: 'AQID', withEdits: false }]);
    expect(screen.backs).toBe(0);
  });

  it('"Copy link" puts the look in the fragment of the app\'s address, or shows the link when the clipboard won\'t', async () => {
    await controller.copyLink();
    expect(copied).toEqual(['http://localhost:8080/#look=AQID']);
    expect(screen.infos).toEqual(['Link copied']);
    clipboardWorks = false;
    await controller.copyLink();
    expect(ui.last.showLink).toBe('http://localhost:8080/#look=AQID');
  });
});
