// The three guided tours: the camera and the edit tour of the main screen (its steps chosen by the
// mode at the moment the tour starts) and the tour of the Arrange screen. Each starts with the shared
// settings and bubble style, shown even if the walkthrough remembers it as completed: the tutorial
// flags alone decide when a tour runs, and the screens check and write them.
import { Mode, type Tour } from './camera-inteface-vc';
import {
  highlighted,
  standalone,
  TextLocation,
  WalkthroughHelper,
  type Anchor,
  type Walkthrough,
  type WalkthroughItem,
  type WalkthroughProvider,
} from './walkthrough';

// The controls the steps point at, by the names of the screens' fields.
export type MainScreenAnchor =
  | 'randomEffectsButton'
  | 'randomParamsButton'
  | 'blendButton'
  | 'showEffectsArrangeButton'
  | 'alphaSlider'
  | 'libraryButton'
  | 'activityIndicatorHolder'
  | 'utilityControlsHolder'
  | 'doneButton';
export type ArrangeAnchor = 'tableView';

export function mainScreenItems(mode: Mode, anchor: (name: MainScreenAnchor) => Anchor): WalkthroughItem[] {
  const beside = TextLocation.beside;
  if (mode === Mode.photo) {
    return [
      highlighted(anchor('randomEffectsButton'), beside, 'Tap here to randomize BOTH the active effects and their parameters'),
      highlighted(anchor('randomParamsButton'), beside, 'Tap here to randomize ONLY effect parameters'),
      highlighted(anchor('blendButton'), beside, 'Select a blend mode to control how the filtered image combines with the original image'),
      highlighted(
        anchor('showEffectsArrangeButton'),
        beside,
        'Tap here to access the effects stack, allowing you to arrange and activate filters at will',
      ),
      highlighted(anchor('alphaSlider'), beside, 'Adjust the alpha (opacity) of the effected image with this slider'),
      highlighted(
        anchor('libraryButton'),
        beside,
        'ZORVEX will show you a live camera feed by default, but you may load an image from your Photo Library here',
      ),
    ];
  }
  return [
    highlighted(anchor('activityIndicatorHolder'), TextLocation.over, 'Tap the image to momentariy see the original image underneath'),
    highlighted(anchor('utilityControlsHolder'), beside, 'You may change effects and blending after the image is captured'),
    highlighted(anchor('doneButton'), beside, "Tap 'Camera' to go back to the camera or load another image"),
  ];
}

export function arrangeItems(anchor: (name: ArrangeAnchor) => Anchor): WalkthroughItem[] {
  return [
    standalone('Use this screen to activate and arrange the effects.\n\nThe order does matter, effects applied from top-to-bottom.'),
    standalone('You may also arrange the effects by lightly dragging from the right side'),
    highlighted(
      anchor('tableView'),
      TextLocation.beside,
      'All available built-in and user-saved effects presets will be shown in this table.  Tap one of the rows to activate it',
    ),
  ];
}

export interface ToursParts {
  walkthrough: Walkthrough;
  // The main screen's mode as it stands.
  mode: () => Mode;
  mainAnchor: (name: MainScreenAnchor) => Anchor;
  arrangeAnchor: (name: ArrangeAnchor) => Anchor;
  log?: (line: string) => void;
}

export class Tours {
  readonly mainScreen: WalkthroughProvider;
  readonly arrangeScreen: WalkthroughProvider;
  private readonly log: (line: string) => void;

  constructor(private readonly parts: ToursParts) {
    this.log = parts.log ?? ((line) => console.log(line));
    this.mainScreen = { walkthroughId: 'mainScreen', walkthroughItems: () => mainScreenItems(parts.mode(), parts.mainAnchor) };
    this.arrangeScreen = { walkthroughId: 'effectsArrange', walkthroughItems: () => arrangeItems(parts.arrangeAnchor) };
  }

  // The camera and the edit tour are the main screen's: which of the two shows is the mode's to say.
  startWalkthrough(tour: Tour): void {
    const provider = tour === 'arrange' ? this.arrangeScreen : this.mainScreen;
    this.parts.walkthrough.startWalkthrough(provider, {
      withSettings: WalkthroughHelper.settings,
      style: WalkthroughHelper.style,
      delegate: null,
      showEvenIfItHasAlreadyBeenCompleted: true,
      completion: () => this.log('Walkthrough Complete'),
    });
  }
}
