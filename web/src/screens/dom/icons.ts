// The buttons' pictures, drawn as small SVGs (24 x 24, stroked in the current colour).
const svg = (body: string) =>
  `<svg viewBox="0 0 24 24" width="24" height="24" fill="none" stroke="currentColor" stroke-width="1.8" stroke-linecap="round" stroke-linejoin="round" aria-hidden="true">${body}</svg>`;

export const icons = {
  library: svg('<rect x="3" y="4" width="18" height="16" rx="2"/><circle cx="9" cy="10" r="2"/><path d="M21 16l-5-5-9 9"/>'),
  // A camera with two arrows going round: switch to the other camera.
  flip: svg(
    '<path d="M3 8.5A1.5 1.5 0 0 1 4.5 7H7l1.5-2.5h7L17 7h2.5A1.5 1.5 0 0 1 21 8.5v9a1.5 1.5 0 0 1-1.5 1.5h-15A1.5 1.5 0 0 1 3 17.5z"/>' +
      '<path d="M8.6 12.2a3.5 3.5 0 0 1 6.2-1.6"/><path d="M15.2 8.6l-.3 2.1-2.1-.4"/>' +
      '<path d="M15.4 14.8a3.5 3.5 0 0 1-6.2 1.6"/><path d="M8.8 18.4l.3-2.1 2.1.4"/>',
  ),
  flash_on: svg('<path d="M13 2L5 14h6l-1 8 8-12h-6z" fill="currentColor"/>'),
  flash_auto: svg('<path d="M11 2L4 13h5l-1 8 7-11h-5z"/><path d="M16 22l2.5-7 2.5 7M17 20h3"/>'),
  flash_off: svg('<path d="M13 2L5 14h6l-1 8 8-12h-6z"/><path d="M3 3l18 18"/>'),
  rotateLeft: svg('<path d="M4 4v5h5"/><path d="M5 9a8 8 0 1 1 2 8"/>'),
  rotateRight: svg('<path d="M20 4v5h-5"/><path d="M19 9a8 8 0 1 0-2 8"/>'),
  flipH: svg('<path d="M12 3v18"/><path d="M9 6L3 18h6z"/><path d="M15 6l6 12h-6z" fill="currentColor"/>'),
  flipV: svg('<path d="M3 12h18"/><path d="M6 9L18 3v6z"/><path d="M6 15l12 6v-6z" fill="currentColor"/>'),
  flatten: svg('<path d="M12 3l9 5-9 5-9-5z"/><path d="M3 13l9 5 9-5"/>'),
  done: svg('<path d="M15 5l-7 7 7 7"/>'),
  undo: svg('<path d="M9 13L4 8l5-5"/><path d="M4 8h10.5a5.5 5.5 0 0 1 0 11H11"/>'),
  redo: svg('<path d="M15 13l5-5-5-5"/><path d="M20 8H9.5a5.5 5.5 0 0 0 0 11H13"/>'),
  export: svg('<path d="M12 3v12"/><path d="M7 8l5-5 5 5"/><path d="M5 13v6a2 2 0 0 0 2 2h10a2 2 0 0 0 2-2v-6"/>'),
  close: svg('<path d="M6 6l12 12M18 6L6 18"/>'),
  dice: svg('<rect x="4" y="4" width="16" height="16" rx="3"/><circle cx="9" cy="9" r="1" fill="currentColor"/><circle cx="15" cy="15" r="1" fill="currentColor"/><circle cx="15" cy="9" r="1" fill="currentColor"/><circle cx="9" cy="15" r="1" fill="currentColor"/>'),
  sliders: svg('<path d="M4 7h10M18 7h2M4 17h4M12 17h8"/><circle cx="16" cy="7" r="2"/><circle cx="10" cy="17" r="2"/>'),
  blend: svg('<circle cx="9" cy="12" r="6"/><circle cx="15" cy="12" r="6"/>'),
  stack: svg('<rect x="4" y="4" width="16" height="4" rx="1"/><rect x="4" y="10" width="16" height="4" rx="1"/><rect x="4" y="16" width="16" height="4" rx="1"/>'),
  minus: svg('<circle cx="12" cy="12" r="9" fill="#e5243b" stroke="none"/><path d="M7.5 12h9" stroke="#fff" stroke-width="2.4"/>'),
  grip: svg('<path d="M5 8h14M5 12h14M5 16h14"/>'),
} as const;

// The flash button's pictures, by the names the camera controls use.
export const flashIcons: Record<string, string> = {
  'flash_on.png': icons.flash_on,
  'flash_auto.png': icons.flash_auto,
  'flash_off.png': icons.flash_off,
};
