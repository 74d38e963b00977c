"""The HTML page holds what the check found, needs nothing else, and works in a browser."""

import base64
import io
import re
import shutil
import subprocess
from html.parser import HTMLParser

import numpy
import pytest
from PIL import Image

from desk.pictures import rgb
from preview_desk import SECONDS, drawn

ROWS = [
    ("de", "Brem K5 & <b>", "Das Gerät\\nBitte warten"),
    ("en", "Title", "m" * 50),
    ("zh", "启动", "请稍候"),
    ("en", "-c", "cannot be drawn"),
]


class Articles(HTMLParser):
    """What stands in each article: attributes, pictures, cells and findings."""

    def __init__(self, text):
        super().__init__()
        self.articles, self.inside = [], None
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "article":
            self.articles.append({"attrs": attrs, "pictures": [], "td": [], "li": [], "marks": 0})
        if tag == "img":
            self.articles[-1]["pictures"].append(attrs["src"])
        if self.articles and "mark" in attrs.get("class", "").split():
            self.articles[-1]["marks"] += 1
        self.inside = tag

    def handle_endtag(self, tag):
        self.inside = None

    def handle_data(self, data):
        if self.inside in ("td", "li"):
            self.articles[-1][self.inside].append(data)


@pytest.fixture
def html(preview, tmp_path):
    catalogue, file = tmp_path / "catalogue.tsv", tmp_path / "pages.html"
    catalogue.write_text("".join("\t".join(row) + "\n" for row in ROWS))
    done = preview("--check", catalogue, "--html", file)
    assert (done.returncode, done.stderr) == (1, "")
    return file


def test_it_holds_the_pictures_texts_and_findings(html):
    articles = Articles(html.read_text(encoding="utf-8")).articles
    assert [one["attrs"]["data-language"] for one in articles] == ["de", "en", "zh", "en"]
    for row, article in zip(ROWS[:3], articles):
        (source,) = article["pictures"]
        kind, data = source.split(",")
        assert kind == "data:image/png;base64"
        with Image.open(io.BytesIO(base64.b64decode(data))) as image:
            page = drawn(row[1:], chinese=row[0] == "zh")[0]
            assert numpy.array_equal(numpy.asarray(image.convert("RGB")), rgb(page))
        texts, rooms = article["td"][0::2], article["td"][1::2]
        assert texts == [row[1], *row[2].split("\\n")]
        assert all(re.fullmatch(r"\d+ px (left|over)", room) for room in rooms)
    assert [one["li"] for one in articles][::2] == [[], []]
    assert "the page at 480" in articles[1]["li"][0] and articles[1]["marks"] == 1
    assert articles[3]["pictures"] == [] and "option on the command line" in articles[3]["li"][0]


def test_it_needs_nothing_else(html):
    text = html.read_text(encoding="utf-8")
    assert not re.search(r"https?://|<link|@import|url\(", text)
    assert not re.search(r'src="(?!data:)', text)


@pytest.mark.skipif(not shutil.which("chromium"), reason="chromium is not installed")
@pytest.mark.parametrize(
    "choose,seen",
    [
        ("", ["de", "en", "zh", "en"]),
        ("choice.value = 'zh'; choice.dispatchEvent(new Event('change'));", ["zh"]),
        ("findings.click();", ["en", "en"]),
    ],
)
def test_a_browser_shows_the_language_that_is_chosen(html, tmp_path, choose, seen):
    text = html.read_text(encoding="utf-8")
    html.write_text(text.replace("</body>", f"<script>{choose}</script></body>"), encoding="utf-8")
    options = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-background-networking"]
    options += ["--disable-component-update", "--disable-sync", "--no-first-run"]
    done = subprocess.run(
        ["chromium", *options, f"--user-data-dir={tmp_path}/browser", "--dump-dom", html.as_uri()],
        capture_output=True,
        text=True,
        check=True,
        timeout=2 * SECONDS,
    )
    shown = [one["attrs"] for one in Articles(done.stdout).articles if "hidden" not in one["attrs"]]
    assert [attrs["data-language"] for attrs in shown] == seen
