// The engine requests about looks: the recipe of a picture (effects, control vector, blend, opacity,
// size and edit steps) that travels inside saved pictures and in links.

export type LookRequest =
  // The look a JPEG or PNG carries.
  | { type: 'lookFromPicture'; file: ArrayBuffer }
  // A look's JSON or link text, checked.
  | { type: 'parseLook'; text: string }
  // The list runs the look's effects (a "FROM PHOTO" preset is added when no rows do), and the view
  // takes its vector, blend and opacity; with `withEdits` its edit steps are done on the base too.
  | { type: 'applyLook'; text: string; withEdits: boolean }
  // The look of the current picture, as JSON or as the text for a link.
  | { type: 'currentLook'; compact: boolean }
  // The picture file with the XMP packet as its metadata.
  | { type: 'embedLook'; file: ArrayBuffer; xmp: string };

export type LookRequestType = LookRequest['type'];

export const lookRequestTypes: readonly LookRequestType[] = ['lookFromPicture', 'parseLook', 'applyLook', 'currentLook', 'embedLook'];

export function isLookRequest(request: { type: string }): request is LookRequest {
  return (lookRequestTypes as readonly string[]).includes(request.type);
}

// What applying a look set, for the page's own copy of the view's state.
export interface AppliedLook {
  blendIndex: number;
  opacity: number;
  seed: string | null;
  presetAdded: boolean;
}

// The JSON form of a look, as far as the page reads it.
export interface LookJson {
  zorvexLook: number;
  effects: string[];
  seed?: string;
  blend: string;
  opacity: number;
}

export interface LookReplies {
  // `look` is the JSON form.
  lookFromPicture: { status: 'look' | 'none' | 'error'; look: string | null; error: string | null };
  parseLook: { look: string | null; error: string | null };
  applyLook: { applied: AppliedLook | null; error: string | null };
  currentLook: { text: string };
  embedLook: { file: ArrayBuffer | null; error: string | null };
}
