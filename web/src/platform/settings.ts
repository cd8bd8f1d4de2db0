// The settings as the page reads them: the same keys and readings as the core's SettingsController.
import type { PageDefaults } from './defaults';

export enum FrameQuality {
  normal = 0,
  low = 1,
}

export enum SaveQuality {
  full = 0,
  half = 1,
}

export const kFrameSettingKey = '__FrameSettingKey__';
export const kSaveSettingKey = '__SaveSettingKey__';
export const kHasShownIntroKey = 'zz.kvt.zorvex.kHasShownIntroMessageBaby';
export const kHasShownEditControlsKey = 'zz.kvt.zorvex.hasShownEditControlsKey';
export const kHasShownArrangeTutorialKey = 'zz.kvt.zorvex.hasShownArrangeTutorialKey';
export const kLaunchCountKey = '____KLaunchCountKey';

export class SettingsController {
  constructor(private readonly defaults: PageDefaults) {}

  resetTutorials(): void {
    for (const key of [kHasShownIntroKey, kHasShownEditControlsKey, kHasShownArrangeTutorialKey])
      this.defaults.setBool(false, key);
  }
  hasShownIntro(): boolean {
    return this.defaults.boolForKey(kHasShownIntroKey);
  }
  setHasShownIntro(): void {
    this.defaults.setBool(true, kHasShownIntroKey);
  }
  hasShownEditControls(): boolean {
    return this.defaults.boolForKey(kHasShownEditControlsKey);
  }
  setHasShownEditControls(): void {
    this.defaults.setBool(true, kHasShownEditControlsKey);
  }
  hasShownArrangeTutorial(): boolean {
    return this.defaults.boolForKey(kHasShownArrangeTutorialKey);
  }
  setHasShownArrangeTutorial(): void {
    this.defaults.setBool(true, kHasShownArrangeTutorialKey);
  }
  // Any stored value other than 1 reads as normal.
  frameQuality(): FrameQuality {
    return this.defaults.integerForKey(kFrameSettingKey) === 1 ? FrameQuality.low : FrameQuality.normal;
  }
  // The page reads a value other than 0 or 1 as full rather than stopping; the engine checks it too.
  saveQuality(): SaveQuality {
    return this.defaults.integerForKey(kSaveSettingKey) === 1 ? SaveQuality.half : SaveQuality.full;
  }
  launchCount(): number {
    return this.defaults.integerForKey(kLaunchCountKey);
  }
}
