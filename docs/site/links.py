"""Every link of the built pages leads somewhere, and no page asks anything of a network.

    links.py SITE
"""
import re
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

LOADED = {("script", "src"), ("img", "src"), ("link", "href"), ("iframe", "src"), ("source", "src")}


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for key, value in attributes:
            if key in ("id", "name") and value:
                self.anchors.add(value)
            if key in ("href", "src") and value:
                self.links.append((tag, key, value))


def main():
    site = Path(sys.argv[1]).resolve()
    pages = {path: Page(path.read_text(encoding="utf-8")) for path in sorted(site.rglob("*.html"))}
    wrong, seen = [], 0
    for path, page in pages.items():
        for tag, key, link in page.links:
            parts = urlsplit(link)
            if parts.scheme or parts.netloc:
                # Canonical names and the like are links too; what a browser loads has to lie in the site.
                if (tag, key) in LOADED and parts.scheme != "data":
                    wrong.append(f"{path.relative_to(site)}: loads {link}")
                continue
            seen += 1
            target = (path.parent / unquote(parts.path)).resolve() if parts.path else path
            if not target.exists() or site not in target.parents:
                wrong.append(f"{path.relative_to(site)}: {link} is not there")
            elif parts.fragment and target in pages and unquote(parts.fragment) not in pages[target].anchors:
                wrong.append(f"{path.relative_to(site)}: {link}: no such anchor")
    for path in site.rglob("*.css"):
        for url in re.findall(r"url\(\s*['\"]?([^'\")]+)", path.read_text(encoding="utf-8")):
            if urlsplit(url).scheme not in ("", "data") or url.startswith("//"):
                wrong.append(f"{path.relative_to(site)}: loads {url}")
    # The search reads an index that a script element loads; a summary would be fetched, which no browser grants to a file.
    if not re.search(r'\bfixtur"?:', (site / "searchindex.js").read_text(encoding="utf-8")) or \
            "SHOW_SEARCH_SUMMARY: false" not in (site / "_static/documentation_options.js").read_text(encoding="utf-8"):
        wrong.append("the search does not work without a server")
    for each in wrong:
        print(f"docs: {each}", file=sys.stderr)
    if seen < 1000:
        sys.exit(f"docs: only {seen} links in {site}; is the search still right?")
    if wrong:
        sys.exit(1)
    print(f"docs: {seen} links of {len(pages)} pages lead somewhere")


main()
