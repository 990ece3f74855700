// Making and renewing parts of the document. Whatever a client sent comes through here, and is only ever set as text.

const SVG = 'http://www.w3.org/2000/svg';

export const $ = (id) => document.getElementById(id);

/** An element with properties ({ className, title, onclick, ... }) and children: elements or texts. */
export function make(tag, properties = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  element.append(...children);
  return element;
}

export function svg(tag, attributes = {}, ...children) {
  const element = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...children);
  return element;
}

export function setText(element, text) {
  const shown = String(text);
  if (element.textContent !== shown) element.textContent = shown;
}

/**
 * Makes a list's children those of `items`, in their order. What stays is left where it is, so that it keeps the focus and
 * the place it is scrolled to.
 * @param key     of an item: a text
 * @param create  makes an item's element
 * @param update  renews it: (element, item)
 */
export function renew(parent, items, { key, create, update = () => {} }) {
  const wanted = new Set(items.map(key));
  const present = new Map();
  for (const child of [...parent.children]) {
    if (wanted.has(child.key)) present.set(child.key, child);
    else child.remove();
  }
  let next = parent.firstElementChild;
  for (const item of items) {
    const id = key(item);
    let element = present.get(id);
    if (!element) {
      element = create(item);
      element.key = id;
      present.set(id, element);
    }
    update(element, item);
    if (element === next) next = next.nextElementSibling;
    else parent.insertBefore(element, next);
  }
}

/** A row of a table with this many cells; `classes` are those of the cells. */
export function row(...classes) {
  return make('tr', {}, ...classes.map((className) => make('td', { className })));
}

/** A line of the shell with a button that copies it. */
export function command(text) {
  const button = make('button', { type: 'button', className: 'small', textContent: 'Copy', ariaLabel: `Copy: ${text}` });
  const code = make('code', { textContent: text });
  button.addEventListener('click', async () => {
    try {
      await navigator.clipboard.writeText(text);
      button.textContent = 'Copied';
    } catch {
      getSelection().selectAllChildren(code); // for the keyboard
      button.textContent = 'Selected';
    }
    setTimeout(() => (button.textContent = 'Copy'), 1500);
  });
  return make('span', { className: 'command' }, code, button);
}

/** What stands in an empty list's place: what is missing, and the lines of the shell that bring it. */
export function showEmpty(element, isEmpty, text, ...commands) {
  element.hidden = !isEmpty;
  if (isEmpty && element.dataset.says !== text) {
    element.dataset.says = text;
    element.replaceChildren(make('p', { textContent: text }), ...commands.map(command));
  }
}
