#!/usr/bin/python3
"""Takes pictures of the bench console with two cameras shown, on a desktop and on a phone."""

import argparse
import contextlib
import os
import sys
import tempfile

import bench

LEFT = (15, 192, 400, 266)
VIEWS = (
    ("console.png", dict(width=1280, height=1080)),
    ("console-phone.png", dict(width=390, height=1060, phone=True, scheme="light")),
)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", required=True, help="folder of the built programs")
    parser.add_argument("folder", help="where the pictures go")
    arguments = parser.parse_args()
    lacking = bench.missing()
    if lacking:
        sys.exit("screenshots.py: this machine lacks " + lacking)

    with contextlib.ExitStack() as stack:
        board = bench.Bench(arguments.bin, videos=("harbour.mp4", "safety-briefing.avi"))
        stack.callback(board.close)
        scratch = stack.enter_context(tempfile.TemporaryDirectory(prefix="velcam-browser-", ignore_cleanup_errors=True))
        page = bench.Browser(scratch)
        stack.callback(page.close)
        page.look(**VIEWS[0][1])
        page.open(board.url)
        page.click("label:has([name=pane1][value='2'])")
        page.click("[data-state=camera]")
        bench.wait_for(lambda: bench.camera_in(page.pixels(), *LEFT)[0] == 1, "camera 1 in the picture")
        bench.wait_for(lambda: page.all("a[download='cam.avi']") and page.text("rate"), "the recording")
        for name, view in VIEWS:
            page.look(**view)
            page.driver.execute_script("scrollTo(0, 0); document.activeElement.blur()")
            bench.wait_for(lambda: bench.camera_in(page.pixels(), *LEFT)[0] == 1, "camera 1 in the picture")
            page.screenshot(os.path.join(arguments.folder, name))


main()
