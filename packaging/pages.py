"""The manual pages as HTML beside their Markdown."""
import os
import re

from linked import output_of

PAGE = """\
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title}</title>
<style>
body {{ font: 16px/1.5 "Segoe UI", sans-serif; color: #1b1b1b;
  max-width: 46rem; margin: 2rem auto; padding: 0 1rem; }}
code, pre {{ font-family: Consolas, monospace; background: #f3f3f3; }}
pre {{ padding: .6rem; overflow-x: auto; }}
table {{ border-collapse: collapse; display: block; overflow-x: auto; }}
th, td {{ border: 1px solid #c8c8c8; padding: .3rem .6rem; text-align: left;
  vertical-align: top; }}
</style>
</head>
<body>
{body}</body>
</html>
"""


def page_title(markdown):
    found = re.search(r"^# (.+)$", markdown, re.MULTILINE)
    return found.group(1) if found else "KOVA Server"


def with_anchor(heading):
    """A heading that links lead to by its words, in lower case."""
    level, text = heading.groups()
    words = re.sub(r"<[^>]*>|[^\w\- ]", "", text).lower().replace(" ", "-")
    return f'<h{level} id="{words}">{text}</h{level}>'


def write_page(path):
    """path: a Markdown file; the page goes beside it."""
    with open(path, encoding="utf-8") as file:
        title = page_title(file.read())
    body = output_of("cmark-gfm", "--extension", "table", path)
    body = re.sub(r"<h([1-6])>(.*?)</h\1>", with_anchor, body)
    body = re.sub(r'(href="[^":]+)\.md(["#])', r"\1.html\2", body)
    with open(path[:-len(".md")] + ".html", "w", encoding="utf-8",
              newline="\n") as file:
        file.write(PAGE.format(title=title, body=body))


def has_anchor(path, anchor):
    with open(path, encoding="utf-8") as file:
        return f'id="{anchor}"' in file.read()


def check_links(path):
    """Stops if a page has a link that leads to nothing in the package."""
    with open(path, encoding="utf-8") as file:
        links = re.findall(r'href="([^"#:]*)(?:#([^":]*))?"', file.read())
    for link, anchor in links:
        target = os.path.join(os.path.dirname(path), link) if link else path
        if not os.path.exists(target):
            raise SystemExit(f"error: {path}: no such page or file: {link}")
        if anchor and not has_anchor(target, anchor):
            raise SystemExit(f"error: {path}: no such heading: {link}#{anchor}")


def write_pages(root):
    """Writes a page for each Markdown file below the folder `root`."""
    pages = [os.path.join(folder, name) for folder, _, names in os.walk(root)
             for name in sorted(names) if name.endswith(".md")]
    for page in pages:
        write_page(page)
    for page in pages:
        check_links(page[:-len(".md")] + ".html")
