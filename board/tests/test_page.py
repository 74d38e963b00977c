"""The kernel's screen shows, pixel for pixel, the page that the same build draws on the desk."""
import pytest
from pages import steps

from desk import LANGUAGE

CHINESE = '{"selectedLanguage":"zh"}'


def shows(splash, bench, turn, count=4, **options):
    return steps(splash.wait_until_drawn().screens(count), turn, folder=bench.workshop.work, **options)


def test_the_default_page(splash, desk, bench):
    shows(splash(), bench, desk.page())


@pytest.mark.parametrize(
    "texts", [("Start", "Line one\nLine two"), ("", "a\\nb\\n\\nd")], ids=["lines by newline", "lines by backslash n"]
)
def test_two_texts(splash, desk, bench, texts):
    shows(splash(*texts), bench, desk.page(*texts))


def test_a_chinese_page(splash, desk, bench, board):
    texts = ("Brem K5 配置", "正在启动\nBrem K5 请稍候")
    turn = desk.page(*texts, language="zh")
    board.output(f"echo '{CHINESE}' >{LANGUAGE}")
    shows(splash(*texts), bench, turn)
    assert turn[0] != desk.page(*texts, language="de")[0], "the language makes a difference"


def test_the_page_after_a_text_command(splash, desk, bench):
    old, new = desk.page("Old", "before"), desk.page("New", "after\nthe command")
    running = splash("Old", "before")
    shows(running, bench, old)
    running.send("New;after\nthe command")
    shows(running, bench, new, count=10, before=old)


def test_the_ring_turns_forwards_and_leaves_no_step_out(splash, desk, bench):
    running, turn = splash("Ring", "turning"), desk.page("Ring", "turning")
    # The capture side runs at the screen's rate: it may see a step twice, and only a busy host makes
    # it miss one. A reading that missed too many is taken again.
    for _ in range(6):
        found = shows(running, bench, turn, count=40)
        ahead = [(later - earlier) % 66 for earlier, later in zip(found, found[1:])]
        if sum(ahead) >= 8 and max(ahead) <= 5 and ahead.count(0) + ahead.count(1) >= 30:
            return
    pytest.fail(f"not step by step: {found}")
