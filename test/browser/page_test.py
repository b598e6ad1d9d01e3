"""Whole: a browser shows the demonstration printer's page, and its second
request travels on the first one's connection.

Usage: page_test.py URL SCREENSHOT, where URL is the running server's."""

import base64
import sys

from browser import Browser, BrowserError


class Failed(Exception):
    """An expectation was not met."""


def expect(what, actual, expected):
    if actual != expected:
        raise Failed("%s: expected %r, got %r" % (what, expected, actual))


def text_of(browser, selector):
    return browser.evaluate(
        "document.querySelector('%s').textContent" % selector)


def check_page(browser, response):
    expect("status", response["status"], 200)
    expect("type", response["mimeType"], "text/html")
    expect("heading", text_of(browser, "#name"), "Demo Printer")
    expect("title", browser.evaluate("document.title"),
           "Demo Printer - status")
    expect("share name", text_of(browser, "#share"), "demo")
    expect("complaints", browser.complaints(), [])


def check_style(browser):
    width = browser.evaluate(
        "document.querySelector('main').getBoundingClientRect().width")
    expect("width of the page in pixels", 600 < width < 900, True)


def check_second_request(browser, first):
    """The button asks again with keep=1, as the first request did."""
    before = int(text_of(browser, "#answered"))
    second = browser.click("form[method=get] button")
    check_page(browser, second)
    expect("connection", text_of(browser, "#connection"), "Kept open")
    expect("counter", int(text_of(browser, "#answered")), before + 1)
    expect("second request on a used connection",
           second["connectionReused"], True)
    expect("connection of the second request", second["connectionId"],
           first["connectionId"])


def check_post(browser):
    response = browser.click("form[method=post] button")
    expect("status of the post", response["status"], 200)
    expect("answer to the post", browser.evaluate("document.body.innerText"),
           "printer=Demo+Printer&text=Hello%2C+printer")


def check_closed_connections(browser, url):
    """Without keep=1, each request needs a connection of its own."""
    first = browser.navigate(url + "/?printer=Demo+Printer")
    expect("connection", text_of(browser, "#connection"), "Closes")
    second = browser.navigate(url + "/?printer=Demo+Printer")
    expect("connections differ",
           first["connectionId"] != second["connectionId"], True)


def check_escaping(browser, url):
    """A request is shown, never obeyed."""
    note = "</pre><img id=evil>\"'"
    browser.call("Network.setExtraHTTPHeaders", headers={"X-Note": note})
    browser.navigate(url + "/?share=demo")
    expect("elements smuggled in",
           browser.evaluate("document.querySelectorAll('img').length"), 0)
    expect("header shown as it was sent",
           "X-Note: " + note in text_of(browser, "#request"), True)


def save_screenshot(browser, path):
    data = browser.call("Page.captureScreenshot", format="png")["data"]
    with open(path, "wb") as file:
        file.write(base64.b64decode(data))


def main(url, screenshot):
    with Browser() as browser:
        first = browser.navigate(url + "/?printer=Demo+Printer&keep=1")
        check_page(browser, first)
        check_style(browser)
        save_screenshot(browser, screenshot)
        check_second_request(browser, first)
        check_post(browser)
        check_closed_connections(browser, url)
        check_escaping(browser, url)


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except (Failed, BrowserError) as failure:
        sys.exit("browser test failed: %s" % failure)
