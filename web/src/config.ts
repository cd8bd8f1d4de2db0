// Where the app reaches beyond itself, kept in one place: the authors' server (the message document
// and the mailing list's sign-up page), the companion app and the social pages of the links page.

// The message document and the sign-up page are paths on the server that serves the app, so the
// same build works on any host; `zorvex serve` answers the message document. The sign-up page must be
// sent with `Cross-Origin-Embedder-Policy: require-corp`, as every page of the app is, or the browser
// refuses to show it inside the app.
export const kServerMessagePath = '/zorvex/messageJSON.php';
export const kMailingListPath = '/zorvex/mailing-list.html';

// The authors' site, for pages that live outside the app.
export const kSite = 'https://zorvex.app';

// The companion app: a glitch camera for moving pictures. Its URL scheme opens it where it is
// installed; its page in the store is opened either way.
export const kCompanion = {
  title: 'ZORVEX MOTION',
  subTitle: 'Glitch your videos too: ZORVEX MOTION puts the same effects on moving pictures.',
  scheme: 'zorvexmotion://open',
  storePage: `${kSite}/motion/`,
};

export const kInstagram = {
  tagTitle: '#ZORVEX',
  tagPage: 'https://www.instagram.com/explore/tags/zorvex/',
  authorHandle: '@zorvex.cam',
  authorPage: 'https://www.instagram.com/zorvex.cam/',
};
