#!/usr/bin/env python3
"""Looks up every link and picture of the pages of a site: check_links.py FOLDER. Addresses of other sites are left alone."""
import os
import sys
import urllib.parse
from html.parser import HTMLParser


class Page(HTMLParser):
    """What a page offers to be linked to, and what it links to."""

    def __init__(self, path):
        super().__init__()
        self.names, self.links = set(), []
        with open(path, encoding="utf-8") as file:
            self.feed(file.read())

    def handle_starttag(self, tag, attrs):
        for key, value in attrs:
            if key in ("id", "name") and value:
                self.names.add(value)
            if (tag, key) in (("a", "href"), ("img", "src"), ("script", "src"), ("link", "href")) and value:
                self.links.append(value)


folder = sys.argv[1]
pages = {}
for parent, _, files in os.walk(folder):
    for name in files:
        if name.endswith(".html") and name != "404.html":
            path = os.path.normpath(os.path.join(parent, name))
            pages[path] = Page(path)
wrong = links = 0
for path, page in pages.items():
    for link in page.links:
        address = urllib.parse.urlsplit(link)
        if address.scheme or address.netloc or link == "#":
            continue
        links += 1
        target = os.path.normpath(os.path.join(os.path.dirname(path), urllib.parse.unquote(address.path))) if address.path else path
        anchor = urllib.parse.unquote(address.fragment)
        if not os.path.isfile(target) or (anchor and target in pages and anchor not in pages[target].names):
            wrong += 1
            print(f"{os.path.relpath(path, folder)}: {link} leads nowhere", file=sys.stderr)
print(f"docs: {folder}: {len(pages)} pages, {links} links, {wrong} of them wrong")
sys.exit(wrong != 0 or not pages)
