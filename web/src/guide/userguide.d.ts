// The user's guide, made by the build (tools/userguide-plugin.ts): the page's HTML with the addresses
// of its pictures filled in, and how many pictures it has.
declare module 'virtual:userguide' {
  const page: string;
  export default page;
  export const pictureCount: number;
}
