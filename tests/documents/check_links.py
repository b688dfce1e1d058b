#!/usr/bin/env python3
"""check_links.py FILE...: fails if a link in a Markdown or HTML file has no target."""
import functools
import os
import re
import sys
import urllib.parse


def without_code(text):
    return re.sub(r'```.*?```|`[^`]*`', '', text, flags=re.S)


@functools.lru_cache(None)
def anchors(path):
    with open(path, encoding='utf-8') as file:
        text = file.read()
    if not path.endswith('.md'):
        return set(re.findall(r'(?:id|name)="([^"]*)"', text))
    headings = re.findall(r'^#+ (.*)$', re.sub(r'```.*?```', '', text, flags=re.S), re.M)
    return {re.sub(r'[^a-z0-9 _-]', '', heading.lower()).replace(' ', '-') for heading in headings}


def links(path):
    with open(path, encoding='utf-8') as file:
        text = file.read()
    if path.endswith('.md'):
        return re.findall(r'\]\(([^)\s]*)\)', without_code(text))
    return re.findall(r'(?:href|src)="([^"]*)"', text)


broken = 0
for path in sys.argv[1:]:
    for link in links(path):
        target, _, anchor = urllib.parse.unquote(link).partition('#')
        if re.match(r'[a-z]+:', link) or link == '#nested-classes':  # Doxygen adds it to pages without that anchor
            continue
        file = os.path.normpath(os.path.join(os.path.dirname(path), target)) if target else path
        if not os.path.exists(file) or (anchor and os.path.isfile(file) and anchor not in anchors(file)):
            print(f'{path}: {link} has no target')
            broken = 1
sys.exit(broken)
