#!/usr/bin/python3
"""Drives the bench console in headless Chromium: every button, and what the live picture shows of it."""

import argparse
import os
import sys
import tempfile
import time
import unittest

import bench

ONE_PANE = (15, 75, 800, 500)
LEFT, RIGHT = (15, 192, 400, 266), (415, 192, 400, 266)
BACKUP = (115, 40, 800, 500)
programs = ""


class Console(unittest.TestCase):
    def setUp(self):
        self.bench = bench.Bench(programs, videos=("first.avi", "it's \"second\" & <third>.mp4"))
        self.addCleanup(self.bench.close)
        scratch = tempfile.TemporaryDirectory(prefix="velcam-browser-", ignore_cleanup_errors=True)
        self.addCleanup(scratch.cleanup)
        self.page = bench.Browser(scratch.name)
        self.addCleanup(self.page.close)
        self.page.look(1280, 900)
        self.page.open(self.bench.url)

    def choose(self, pane, camera):
        self.page.click(f"label:has([name=pane{pane}][value='{camera}'])")

    def await_camera(self, camera, pane):
        """Waits until the picture shows the camera there; its frame number."""
        seen = bench.wait_for(lambda: (shown := bench.camera_in(self.page.pixels(), *pane))[0] == camera and shown,
                              f"camera {camera} in the picture")
        return seen[1]

    def await_pressed(self, selector):
        bench.wait_for(lambda: self.page.find(selector).get_attribute("aria-pressed") == "true", f"{selector} pressed")

    def press_state(self, state):
        self.page.click(f"[data-state={state}]")
        self.page.wait_text("state", state)
        self.await_pressed(f"[data-state={state}]")

    def test_every_button_does_what_it_says(self):
        with self.subTest("cameras"):
            self.choose(0, 1)
            self.choose(1, 2)
            self.press_state("camera")
            first = self.await_camera(1, LEFT)
            self.await_camera(2, RIGHT)
            bench.wait_for(lambda: bench.camera_in(self.page.pixels(), *LEFT)[1] > first, "a later frame")
            self.choose(0, 3)
            self.choose(1, 0)
            self.page.click("#channels")
            self.await_camera(3, ONE_PANE)
        with self.subTest("states"):
            self.choose(0, 4)
            self.press_state("backup")
            self.await_camera(4, BACKUP)
            self.press_state("transfer")
            self.page.wait_text("recording", "not recording")
            self.press_state("idle")
            self.page.wait_text("recording", "● recording")
            bench.wait_for(lambda: bench.camera_in(self.page.pixels(), *BACKUP)[0] == 0, "the overlay's end")
        with self.subTest("inputs that are not shown"):
            self.page.click("summary")
            self.choose(2, 2)
            self.page.click("#channels")
            self.page.wait_text("said", "asked for")
        with self.subTest("bitrate"):
            for kbps in (4000, 1000, 2000):
                self.page.click(f"[data-kbps='{kbps}']")
                self.await_pressed(f"[data-kbps='{kbps}']")
        with self.subTest("stored videos"):
            names = [option.text for option in self.page.all("#videos option")]
            self.assertEqual(names, ["first.avi", "it's \"second\" & <third>.mp4"])
            self.page.find("#videos").send_keys("it's")
            self.page.click("#play")
            self.page.wait_text("state", "play")
            bench.wait_for(lambda: "third" in self.played(), "the player")
            self.press_state("idle")
        with self.subTest("pause"):
            self.press_state("camera")
            self.await_camera(4, ONE_PANE)
            self.page.click("#pause")
            bench.wait_for(lambda: "/panel.jpg" in self.page.find("#live").get_attribute("src")
                           and bench.camera_in(self.page.pixels(), *ONE_PANE)[0], "a still picture")
            still = self.page.pixels()
            frames = self.frames_recorded()
            bench.wait_for(lambda: self.frames_recorded() > frames, "more frames")
            self.assertEqual(self.page.pixels(), still)
            self.page.click("#pause")
            bench.wait_for(lambda: self.page.pixels() != still, "a picture that moves again")
        with self.subTest("download"):
            self.page.click("a[download='cam.avi']")
            saved = os.path.join(self.page.downloads, "cam.avi")
            bench.wait_for(lambda: os.path.exists(saved), "the download")
            with open(saved, "rb") as file:
                self.assertEqual(file.read(12)[8:], b"AVI ")
            self.page.click("a[download='panel.jpg']")
            bench.wait_for(lambda: os.path.exists(os.path.join(self.page.downloads, "panel.jpg")), "the picture")

    def played(self):
        path = os.path.join(self.bench.board, "played")
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8") as file:
            return file.read()

    def frames_recorded(self):
        terms = self.page.all("#status dt")
        values = {term.text: value.text for term, value in zip(terms, self.page.all("#status dd"))}
        return int(values.get("Frames recorded", "0").replace(",", ""))

    def test_the_keyboard_reaches_everything_and_everything_has_a_name(self):
        from selenium.webdriver.common.keys import Keys

        bench.wait_for(lambda: self.page.all("a[download='cam.avi']"), "a recording")
        self.page.click("summary")
        wanted = {element.id for element in self.page.all("button:enabled, a, select:enabled, #log, summary, [name=pane0]:checked")}
        reached = set()
        for _ in range(40):
            active = self.page.driver.switch_to.active_element
            active.send_keys(Keys.TAB)
            reached.add(self.page.driver.switch_to.active_element.id)
        self.assertEqual(wanted - reached, set())
        for element in self.page.all("button, a, select, input, img, [role]"):
            self.assertTrue(element.accessible_name or element.get_attribute("role") == "status",
                            element.get_attribute("outerHTML"))

        left = self.page.find("[name=pane0][value='1']")
        left.send_keys(Keys.ARROW_RIGHT)
        self.assertTrue(self.page.find("[name=pane0][value='2']").is_selected())
        self.page.find("[data-state=camera]").send_keys(Keys.ENTER)
        self.await_camera(2, ONE_PANE)

    def test_a_phone_needs_no_sideways_scrolling(self):
        self.page.look(360, 740, phone=True)
        bench.wait_for(lambda: self.page.all("a[download='cam.avi']"), "a recording")
        width = self.page.driver.execute_script("return document.documentElement.scrollWidth")
        self.assertLessEqual(width, 360)
        small = [button.text for button in self.page.all("button") if button.size["height"] < 40]
        self.assertEqual(small, [], "buttons too small for a finger")

    def test_the_page_says_when_the_board_is_down(self):
        self.assertEqual(self.bench.end(), 0)
        self.page.wait_text("link", "board is down")
        self.assertEqual(self.page.text("state"), "-")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", required=True, help="folder of the built programs")
    arguments, rest = parser.parse_known_args()
    programs = arguments.bin
    lacking = bench.missing()
    if lacking:
        print("skipped: this machine lacks " + lacking)
        sys.exit(bench.SKIPPED)
    began = time.monotonic()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
