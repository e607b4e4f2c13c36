"""A browser to look at the page of `vesk map --html` with: Debian's Chromium, headless, driven by selenium."""

import os
import sys
import time

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
except ImportError:
    sys.exit("the page's tests need python3-selenium, chromium and chromium-driver: scripts/setup --long installs them")

CHROMIUM, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"


def start(width=1400, height=900):
    for program in (CHROMIUM, DRIVER):
        if not os.path.exists(program):
            sys.exit(f"the page's tests need {program}: scripts/setup --long installs it")
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ("--headless=new", "--hide-scrollbars", "--force-device-scale-factor=1",
                     f"--window-size={width},{height}", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    if os.geteuid() == 0:  # Chromium's sandbox refuses the superuser
        options.add_argument("--no-sandbox")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service(DRIVER), options=options)


def open_page(browser, path, theme="light"):
    """Returns the seconds until the page says that it is ready."""
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                            {"features": [{"name": "prefers-color-scheme", "value": theme}]})
    begin = time.monotonic()
    browser.get(f"file://{path}")
    assert browser.execute_script("return document.body.dataset.ready") == "yes"
    return time.monotonic() - begin
