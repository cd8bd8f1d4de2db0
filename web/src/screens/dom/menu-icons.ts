// The menu's pictures, drawn as small SVGs: the menu button, the back arrow, the tabs, and the
// pictures of the links' rows by the names the links page gives them.
const line = (body: string, size = 24) =>
  `<svg viewBox="0 0 24 24" width="${size}" height="${size}" fill="none" stroke="currentColor" stroke-width="1.8" stroke-linecap="round" stroke-linejoin="round" aria-hidden="true">${body}</svg>`;

export const menuIcons = {
  menu: line('<path d="M4 7h16M4 12h16M4 17h10"/>'),
  back: line('<path d="M15 5l-7 7 7 7"/>'),
  settings: line(
    '<circle cx="12" cy="12" r="3"/><path d="M12 2.5v3M12 18.5v3M2.5 12h3M18.5 12h3M5.3 5.3l2.1 2.1M16.6 16.6l2.1 2.1M5.3 18.7l2.1-2.1M16.6 7.4l2.1-2.1"/>',
  ),
  guide: line('<path d="M4 5a2 2 0 0 1 2-2h13v16H6a2 2 0 0 0-2 2z"/><path d="M4 21a2 2 0 0 1 2-2h13v2"/><path d="M9 7h6M9 11h4"/>'),
  links: line('<path d="M10 14a4 4 0 0 0 5.7 0l3-3a4 4 0 0 0-5.7-5.7l-1 1"/><path d="M14 10a4 4 0 0 0-5.7 0l-3 3a4 4 0 0 0 5.7 5.7l1-1"/>'),
  about: line('<circle cx="12" cy="12" r="9"/><path d="M12 11v6"/><circle cx="12" cy="7.5" r="0.6" fill="currentColor"/>'),
  mailingList: line('<rect x="3" y="5" width="18" height="14" rx="2"/><path d="M3 7l9 6 9-6"/>'),
  chevron: line('<path d="M9 5l7 7-7 7"/>', 18),
  retry: line('<path d="M20 11a8 8 0 1 0-2.3 5.7"/><path d="M20 5v6h-6"/>', 18),
} as const;

// The links' row pictures: the companion app's icon (a film frame torn by a glitch) and Instagram's.
export const linkImages: Record<string, string> = {
  'icon.companion': `<svg viewBox="0 0 48 48" width="44" height="44" aria-hidden="true">
    <defs><linearGradient id="companion-bg" x1="0" y1="0" x2="1" y2="1"><stop offset="0" stop-color="#2ef2ff"/><stop offset="1" stop-color="#ff2e88"/></linearGradient></defs>
    <rect width="48" height="48" rx="11" fill="url(#companion-bg)"/>
    <rect x="9" y="12" width="30" height="24" rx="3" fill="#0b0b0f"/>
    <path d="M9 17h30M9 31h30" stroke="#ececf1" stroke-width="1.2" stroke-dasharray="2 3"/>
    <rect x="13" y="20" width="14" height="3" fill="#2ef2ff"/><rect x="19" y="24" width="16" height="3" fill="#ff2e88"/>
    <path d="M20 19.5l7 4.5-7 4.5z" fill="#ececf1"/></svg>`,
  'icon.instagram': `<svg viewBox="0 0 48 48" width="44" height="44" aria-hidden="true">
    <defs><radialGradient id="instagram-bg" cx="0.3" cy="1.05" r="1.2"><stop offset="0" stop-color="#fdd86f"/><stop offset="0.35" stop-color="#f5663c"/><stop offset="0.65" stop-color="#d42a7e"/><stop offset="1" stop-color="#6a3bd0"/></radialGradient></defs>
    <rect width="48" height="48" rx="11" fill="url(#instagram-bg)"/>
    <rect x="11" y="11" width="26" height="26" rx="8" fill="none" stroke="#fff" stroke-width="3"/>
    <circle cx="24" cy="24" r="6.2" fill="none" stroke="#fff" stroke-width="3"/><circle cx="31.5" cy="16.5" r="1.9" fill="#fff"/></svg>`,
};
