// The control endpoints as buttons: what is done to a connection, and what is prepared for requests and logins to come.

import { $, make, renew, setText } from './dom.js';
import { plural } from './words.js';

const LOGIN = '(login)';
const REFUSED_LOGINS = ['InvalidToken', 'ExpiredToken', 'AuthFail', 'AppForbidden', 'InvalidAppId', 'InvalidArgument'].map((name) => `loginFail: ${name}`);
const RESULTS = [1, 2, 3, 4, 5, 6, 7];

// What the choice of an answer stands for: null is none at all.
const choicesFor = (command) => [
  ...(command === LOGIN
    ? REFUSED_LOGINS.map((reason) => [reason, reason])
    : [...RESULTS.map((result) => [`result ${result}`, [{ result }]]), ['"Too Many Requests"', ['Too Many Requests']]]),
  ['no answer at all', null],
];

async function post(endpoint, body, done) {
  let said = done;
  try {
    const response = await fetch(`/control/${endpoint}`, { method: 'POST', body: JSON.stringify(body) });
    if (!response.ok) said = (await response.json()).error;
  } catch {
    said = 'The service does not answer.';
  }
  setText($('said'), said);
}

/** Makes the buttons work. `chosen` returns the user whose life is shown ({ app, userId, frozen }), or undefined. */
export function startControl(commands, chosen) {
  const act = (endpoint, done, more = () => ({})) => () => {
    const user = chosen();
    if (user) post(endpoint, { app: user.app, userId: user.userId, ...more(user) }, `${user.userId} ${done(user)}`);
  };
  $('cut').onclick = act('drop', () => 'was cut off.');
  $('freeze').onclick = act('freeze', ({ frozen }) => (frozen ? 'was thawed.' : 'is frozen.'), ({ frozen }) => ({ frozen: !frozen }));
  $('kick').onclick = act('disconnect', () => 'was kicked off.', () => ({ reason: 'KickOff' }));

  $('refuse-command').replaceChildren(...[LOGIN, ...commands].map((name) => new Option(name)));
  $('refuse-command').value = 'sendChannelMessage';
  const showChoices = () => $('refuse-answer').replaceChildren(...choicesFor($('refuse-command').value).map(([text], i) => new Option(text, i)));
  $('refuse-command').onchange = showChoices;
  showChoices();
  $('refuse').onsubmit = (event) => {
    event.preventDefault();
    const command = $('refuse-command').value;
    const [text, answer] = choicesFor(command)[$('refuse-answer').value];
    const body = { times: $('refuse-times').valueAsNumber, userId: $('refuse-user').value.trim() || undefined };
    const done = `Prepared: ${text}, ${plural(body.times, 'time')}.`;
    if (command === LOGIN) post('login', { ...body, reason: answer }, done);
    else post('answer', { ...body, command, answer }, done);
  };
}

// The usual ones are told as they were chosen.
function answerInWords(text) {
  if (text === null) return 'no answer';
  return text.replace(/^\[\{"result":(\d+)\}\]$/, 'result $1').replace(/^\[("Too Many Requests")\]$/, '$1');
}

export function showPrepared(prepared) {
  renew($('prepared'), prepared.map((entry, i) => ({ ...entry, i })), {
    key: ({ i }) => String(i),
    create: () => make('li'),
    update: (li, { what, userId, times, text }) =>
      setText(li, `the next ${times === 1 ? '' : `${times} `}${what ?? 'login'}${times === 1 ? '' : ' requests'} of ${userId ?? 'anyone'}: ${answerInWords(text)}`),
  });
  $('prepared-none').hidden = prepared.length > 0;
}

/** The buttons for the user whose life is shown. */
export function showButtons(life) {
  const isThere = life?.from !== undefined && life.to === undefined;
  for (const id of ['cut', 'freeze', 'kick']) $(id).disabled = !isThere;
  setText($('freeze'), life?.frozen ? 'Thaw' : 'Freeze');
}
