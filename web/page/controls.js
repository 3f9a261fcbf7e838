// A step as a form, from what the table says of its parameters.

function element(tag, properties = {}, ...children) {
  const node = Object.assign(document.createElement(tag), properties);
  node.append(...children);
  return node;
}

/** The slider beside a number, from the ends of what is usual. */
function numberControl(parameter, value, changed, id) {
  const [low, high] = parameter.usual;
  const whole = parameter.type === 'integer';
  const step = parameter.type === 'number' ? Math.max((high - low) / 200, 0.001) : 1;
  const box = element('input', {type: 'text', id, value, inputMode: 'decimal'});
  box.setAttribute('aria-label', `${parameter.name}, ${parameter.help}`);
  const words = element(
    'datalist',
    {id: `${id}-words`},
    ...(parameter.choices ?? []).map((word) => new Option(word)),
  );
  if (parameter.choices) box.setAttribute('list', words.id);
  const slider = element('input', {
    type: 'range',
    min: low,
    max: high,
    step,
    value: Number.isFinite(parseFloat(value)) ? parseFloat(value) : low,
  });
  slider.setAttribute('aria-label', parameter.name);
  slider.addEventListener('input', () => {
    const percent = box.value.endsWith('%') ? '%' : '';
    box.value = String(whole ? Math.round(slider.value) : +(+slider.value).toFixed(4)) + percent;
    changed(box.value, true);
  });
  slider.addEventListener('change', () => changed(box.value, false));
  box.addEventListener('change', () => {
    if (Number.isFinite(parseFloat(box.value))) slider.value = parseFloat(box.value);
    changed(box.value.trim(), false);
  });
  return parameter.choices ? [slider, box, words] : [slider, box];
}

function otherControl(parameter, value, changed, id, pictures, openSecond) {
  const set = (node) => Object.assign(node, {id});
  switch (parameter.type) {
    case 'flag': {
      const box = set(
        element('input', {type: 'checkbox', checked: ['yes', '1', 'true'].includes(value)}),
      );
      box.addEventListener('change', () => changed(box.checked ? 'yes' : 'no', false));
      return box;
    }
    case 'color': {
      const box = set(
        element('input', {type: 'color', value: /^#[0-9a-f]{6}$/i.test(value) ? value : '#000000'}),
      );
      box.addEventListener('input', () => changed(box.value, true));
      box.addEventListener('change', () => changed(box.value, false));
      return box;
    }
    case 'paint': {
      // Names and transparency are typed, other colours picked.
      const box = set(
        element('input', {
          type: 'text',
          value,
          placeholder: 'white, transparent, #204060, #20406080',
        }),
      );
      const picker = element('input', {
        type: 'color',
        value: /^#[0-9a-f]{6}/i.test(value) ? value.slice(0, 7) : '#ffffff',
      });
      picker.setAttribute('aria-label', `${parameter.name}, pick a colour`);
      const pick = (dragging) => {
        box.value = picker.value + (/^#[0-9a-f]{8}$/i.test(box.value) ? box.value.slice(7) : '');
        changed(box.value, dragging);
      };
      picker.addEventListener('input', () => pick(true));
      picker.addEventListener('change', () => pick(false));
      box.addEventListener('change', () => changed(box.value.trim(), false));
      return element('span', {className: 'paint'}, box, picker);
    }
    case 'choice': {
      const box = set(element('select'));
      if (!parameter.required && parameter.default === undefined) box.append(new Option('', ''));
      for (const choice of parameter.choices) box.append(new Option(choice, choice));
      box.value = value;
      box.addEventListener('change', () => changed(box.value, false));
      return box;
    }
    case 'picture': {
      const box = set(element('select'));
      if (!parameter.required) box.append(new Option('none', ''));
      for (const name of pictures) box.append(new Option(name, name));
      box.append(new Option('Open another…', '\n'));
      box.value = value;
      box.addEventListener('change', () => {
        if (box.value !== '\n') return changed(box.value, false);
        box.value = value;
        openSecond((name) => changed(name, false));
      });
      return box;
    }
    default: {
      const box = set(element('input', {type: 'text', value}));
      box.addEventListener('change', () => changed(box.value.trim(), false));
      return box;
    }
  }
}

/** A list item for a step. `actions` has change(name, value, dragging), move(by, label) and
    remove(label), with the label of the button that was pressed, and openSecond(then). */
export function stepForm(step, index, count, operation, pictures, actions) {
  const button = (label, text, act, disabled = false) => {
    const node = element('button', {type: 'button', textContent: text, title: label, disabled});
    node.setAttribute('aria-label', `${label} ${step.name}`);
    node.onclick = () => act(text);
    return node;
  };
  const item = element(
    'li',
    {},
    element(
      'div',
      {className: 'step-head'},
      element('strong', {textContent: `${index + 1}. ${step.name}`}),
      button('Move up', '↑', (label) => actions.move(-1, label), index === 0),
      button('Move down', '↓', (label) => actions.move(1, label), index + 1 === count),
      button('Remove', '×', (label) => actions.remove(label)),
    ),
    element('p', {className: 'summary', textContent: operation.summary}),
  );
  item.dataset.step = step.name;
  operation.parameters.forEach((parameter, i) => {
    const id = `step-${index}-${i}`;
    const changed = (value, dragging) => actions.change(parameter.name, value, dragging);
    const value = step.values[parameter.name] ?? '';
    const row = element(
      'div',
      {className: 'control'},
      element('label', {htmlFor: id, textContent: parameter.name}),
    );
    if (['integer', 'number', 'extent'].includes(parameter.type)) {
      row.append(...numberControl(parameter, value, changed, id));
    } else {
      row.classList.add('wide');
      row.append(otherControl(parameter, value, changed, id, pictures, actions.openSecond));
    }
    const unit = parameter.unit ? ` (${parameter.unit})` : '';
    if (parameter.help || unit) row.append(element('small', {textContent: parameter.help + unit}));
    item.append(row);
  });
  if (operation.note) item.append(element('p', {className: 'note', textContent: operation.note}));
  return item;
}
