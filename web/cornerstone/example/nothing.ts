// What the viewer's toolkit wants of Node for writing XML files, which no page does.
export class EventEmitter {}
export const domainToASCII = String;
export default {};
