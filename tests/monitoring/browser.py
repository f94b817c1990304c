"""A browser without a screen."""

import os
import tempfile

from selenium import webdriver


def browser():
    options = webdriver.ChromeOptions()
    for flag in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                 "--no-first-run", "--disable-background-networking", "--hide-scrollbars",
                 "--host-resolver-rules=MAP prometheus.example 127.0.0.1",
                 f"--user-data-dir={tempfile.mkdtemp()}"):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    os.environ["HOME"] = "/tmp"
    found = webdriver.Chrome(options=options)
    # The browser's own first page complains of things, too.
    found.get("about:blank")
    found.get_log("browser")
    return found


def set_width(driver, width, height=900, scale=1):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": scale, "mobile": False})
