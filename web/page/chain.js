// Steps and their arguments as texts: what the table says of a parameter, and the lines to copy.

/** The value that a control starts with: the default, or something in the middle of the usual. */
export function startOf(parameter) {
  if (parameter.default !== undefined) return parameter.default;
  if (!parameter.required) return '';
  switch (parameter.type) {
    case 'choice':
      return parameter.choices[0];
    case 'flag':
      return 'no';
    case 'color':
      return '#ffffff';
    case 'point':
      return '50%,50%';
    case 'picture':
      return 'second.png';
    case 'integer':
    case 'number':
    case 'extent': {
      const [low, high] = parameter.usual;
      return String(Math.round((low + high) / 2));
    }
    default:
      return '';
  }
}

/** Splits a step's text at blanks outside quotes: ["light", "brightness=20"]. */
export function wordsOf(text) {
  const words = [];
  let word = '',
    quote = '',
    inside = false;
  for (const c of text) {
    if (quote) {
      if (c === quote) quote = '';
      else word += c;
    } else if (c === '"' || c === "'") {
      quote = c;
    } else if (/\s/.test(c)) {
      if (inside) words.push(word);
      word = '';
      inside = false;
      continue;
    } else {
      word += c;
    }
    inside = true;
  }
  if (inside) words.push(word);
  return words;
}

/** A step from its text, by the table; throws an Error that says what does not fit. */
export function parseStep(text, table) {
  const [name, ...rest] = wordsOf(text);
  const operation = table.get(name);
  if (!operation) throw new Error(`there is no operation "${name ?? ''}"`);
  const values = {};
  for (const word of rest) {
    const at = word.indexOf('=');
    const key = word.slice(0, at);
    if (at < 1 || !operation.parameters.some((p) => p.name === key)) {
      throw new Error(`"${name}" has no argument "${at < 1 ? word : key}"`);
    }
    values[key] = word.slice(at + 1);
  }
  for (const p of operation.parameters) {
    if (values[p.name] === undefined) values[p.name] = startOf(p);
  }
  return {name, values};
}

function needsQuotes(value) {
  return /[\s"']/.test(value);
}

/** The step as one would type it, without arguments that have their default. */
export function textOf(step, table) {
  const words = [step.name];
  for (const p of table.get(step.name).parameters) {
    const value = step.values[p.name];
    if (value === undefined || value === '' || value === p.default) continue;
    const quote = value.includes("'") ? '"' : "'";
    words.push(`${p.name}=${needsQuotes(value) ? quote + value + quote : value}`);
  }
  return words.join(' ');
}

function forShell(word) {
  return /^[\w%+,./:=@#-]+$/.test(word) && !word.startsWith('#')
    ? word
    : `'${word.replaceAll("'", `'\\''`)}'`;
}

/** The line of the tool that does the same. */
export function commandLine(chain, table, file) {
  const steps = chain.map((step) => forShell(textOf(step, table)));
  return ['qel run', forShell(file || 'picture.png'), '-o result.png', ...steps].join(' ');
}

/** The same in Python, from the lines that the module gives for the steps. */
export function pythonLine(lines, file) {
  return [
    'import qel',
    `image = qel.imread(${JSON.stringify(file || 'picture.png')})`,
    ...lines,
    'qel.imwrite("result.png", image)',
  ].join('; ');
}

/** The chain as the fragment of a link, and back; throws an Error for what is no chain. */
export function fragmentOf(chain, table) {
  return '#steps=' + chain.map((step) => encodeURIComponent(textOf(step, table))).join('&');
}
export function chainOfFragment(fragment, table) {
  if (fragment === '' || fragment === '#') return [];
  if (!fragment.startsWith('#steps=')) throw new Error('it does not begin with #steps=');
  return fragment
    .slice(7)
    .split('&')
    .filter((part) => part !== '')
    .map((part) => parseStep(decodeURIComponent(part), table));
}
