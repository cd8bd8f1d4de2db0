// The app's version (web/package.json) and the build's number, stamped in by the build.
declare const __ZORVEX_VERSION__: string;
declare const __ZORVEX_BUILD__: string;

export const kAppVersion = {
  short: typeof __ZORVEX_VERSION__ === 'string' ? __ZORVEX_VERSION__ : '0.0.0',
  build: typeof __ZORVEX_BUILD__ === 'string' ? __ZORVEX_BUILD__ : '0',
};
