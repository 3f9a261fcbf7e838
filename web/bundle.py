#!/usr/bin/env python3
"""Puts the page's parts into one file, qel.html, that opens by a double click.

Usage: bundle.py FOLDER
"""
import base64
import pathlib
import re
import sys

MODULES = ['chain.js', 'pictures.js', 'controls.js', 'engine.js', 'view.js', 'gallery.js', 'app.js']


def without_modules(text):
    """The text of a module as part of one script."""
    text = re.sub(r'^import .*?;\n', '', text, flags=re.M | re.S)
    return re.sub(r'^export ', '', text, flags=re.M)


def bundle(folder):
    def read(name):
        return (folder / name).read_text(encoding='utf-8')

    wasm = base64.b64encode((folder / 'qel.wasm').read_bytes()).decode('ascii')
    page = read('index.html')
    parts = {
        '<link rel="stylesheet" href="style.css">': f'<style>\n{read("style.css")}</style>',
        '<script type="module" src="app.js"></script>':
            f'<script type="text/plain" id="wasm-text">{wasm}</script>\n'
            f'<script type="text/plain" id="loader-text">{read("qel.js")}</script>\n'
            f'<script type="text/plain" id="worker-text">{read("worker.js")}</script>\n'
            '<script>(() => {\n' + '\n'.join(without_modules(read(name)) for name in MODULES) +
            '})();</script>',
    }
    for old, new in parts.items():
        if page.count(old) != 1:
            sys.exit(f'bundle.py: index.html has {page.count(old)} times {old!r}, expected once')
        page = page.replace(old, new)
    (folder / 'qel.html').write_text(page, encoding='utf-8')


if __name__ == '__main__':
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    bundle(pathlib.Path(sys.argv[1]))
