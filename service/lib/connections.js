// A socket's life: login, requests, goodbye.

import * as commands from './commands/index.js';
import { readLogin } from './login.js';
import { RateLimit } from './rate-limit.js';
import { LOGIN } from './scripts.js';
import { dismiss } from './world.js';

const TOO_MANY = 'Too Many Requests';

export function serveConnection(socket, service) {
  const { appId, userId, refused } = readLogin(socket.handshake.query, service.config);
  const scripted = service.scripts.take(LOGIN, userId);
  const reason = scripted ? scripted.outcome : refused;
  if (reason === null) return; // a prepared silence: connected, and never answered
  if (reason !== undefined) {
    service.activity.publish('loginRefused', { appId, userId, reason });
    dismiss(socket, reason);
    return;
  }

  const world = service.world(appId);
  const session = { userId, socketId: socket.id, since: service.now() };
  const publish = (event, details) => service.activity.publish(event, { appId, userId, ...details });
  world.open(session, socket, () => publish('login', { connectionId: socket.id }));
  serveRequests(socket, { state: world.state, session, now: service.now }, publish, service);
  socket.on('disconnect', (reason) => {
    world.close(session);
    publish('logout', { connectionId: socket.id, reason, told: socket.data.told, since: session.since });
  });
}

function serveRequests(socket, user, publish, { now, rateLimit, scripts }) {
  const { userId } = user.session;
  const limit = rateLimit && new RateLimit(rateLimit, now);

  socket.on('command', (...items) => {
    const acknowledge = typeof items.at(-1) === 'function' ? items.pop() : () => {};
    const [command, payload] = items;
    const answer = (outcome, ...answerItems) => {
      acknowledge(...answerItems);
      publish('command', { command, outcome });
    };

    const scripted = scripts.take(command, userId);
    if (scripted) {
      if (scripted.outcome) answer('scripted', ...scripted.outcome);
      else publish('command', { command, outcome: 'scripted' });
    } else if (limit && !limit.admits()) {
      answer(TOO_MANY, TOO_MANY);
    } else {
      commands.run(user, command, payload, (response) => answer(response.result, response));
    }
  });
}
