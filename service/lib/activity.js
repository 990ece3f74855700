// What happens in the service, for whoever wants to watch. The events and what each carries, beside `at` (ms):
//   'login'         { appId, userId, connectionId }
//   'loginRefused'  { appId, userId, reason }         texts as the client sent them; undefined when illegible
//   'logout'        { appId, userId, connectionId, reason, told, since }   `told`: what "disconnectReason" said, if it was sent
//   'command'       { appId, userId, command, outcome }
//   'delivered'     { messages }                      how many, counted once for each receiver
//   'control'       { appId, userId, action }         what a control endpoint did to a connection
// `command` is the name as the client sent it, of whatever type. `outcome` is the result number, "Too Many Requests",
// or "scripted" for an answer that was prepared beforehand.

import { EventEmitter } from 'node:events';

export const EVENTS = ['login', 'loginRefused', 'logout', 'command', 'delivered', 'control'];

export class Activity extends EventEmitter {
  #now;

  constructor(now) {
    super();
    this.#now = now;
  }

  publish(event, details) {
    this.emit(event, { at: this.#now(), ...details });
  }
}
