"""The notes example in GTK, in a real window: keys and clicks come through xdotool, and what they did is read in the file.

usage: xvfb-run -s "-fbdir ." notes_gtk.py NOTES_GTK NOTESCTL
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

PATIENCE = 60  # seconds


def soon(what, get, wanted):
    end = time.monotonic() + PATIENCE
    while (found := get()) != wanted:
        if time.monotonic() > end:
            raise AssertionError(f"{what}: {found!r} for {wanted!r}")
        time.sleep(0.05)


def xdotool(*arguments):
    return subprocess.run(["xdotool", *map(str, arguments)], check=True, capture_output=True, text=True).stdout


class Notes:
    def __init__(self, program, notesctl, folder):
        self.notesctl, self.folder = notesctl, folder
        for title, text in (("Apples", "red"), ("Bridges", "long"), ("Candles", "bright")):
            self.control("add", title, text)
        self.process = subprocess.Popen([program, "--folder", folder])
        self.window = xdotool("search", "--sync", "--onlyvisible", "--pid", self.process.pid).split()[0]
        xdotool("windowmove", self.window, 0, 0)

    def control(self, *arguments):
        return subprocess.run([self.notesctl, "--folder", self.folder, *arguments], check=True, capture_output=True, text=True).stdout

    def texts(self, words=""):
        return dict(line.split("\t")[:2] for line in self.control("list", words).splitlines())

    def click(self, x, y):
        xdotool("mousemove", "--window", self.window, x, y, "click", 1)

    def type(self, text):
        xdotool("type", "--delay", 20, text)

    def key(self, keys):
        xdotool("key", keys)

    def close(self):
        self.process.terminate()
        self.process.wait(PATIENCE)


SEARCH, FIRST_ROW, TEXT = (150, 18), (100, 44), (600, 250)


def choose(notes, title):
    """Clicks the first row until the window bears that note's name: the list follows in its own time."""
    def click():
        notes.click(*FIRST_ROW)
        return xdotool("getwindowname", notes.window).strip()
    soon("the first row", click, title)


def edit(notes, typed):
    notes.click(*TEXT)
    notes.key("ctrl+End")
    notes.type(typed)
    notes.click(*SEARCH)  # what is left is saved


def typed_and_undone(notes):
    """The first row is the latest note."""
    choose(notes, "Candles")
    edit(notes, " and warm")
    soon("typed", lambda: notes.texts()["Candles"], "bright and warm")
    notes.key("ctrl+z")
    soon("after an undo", lambda: notes.texts()["Candles"], "bright")
    notes.key("ctrl+shift+z")
    soon("after a redo", lambda: notes.texts()["Candles"], "bright and warm")


def found(notes):
    notes.type("brid")
    choose(notes, "Bridges")
    edit(notes, " and old")
    soon("a found note is edited", lambda: notes.texts("brid"), {"Bridges": "long and old"})


def main():
    program, notesctl = sys.argv[1:]
    os.environ.update(GSK_RENDERER="cairo", GDK_BACKEND="x11")
    with tempfile.TemporaryDirectory() as folder:
        notes = Notes(program, notesctl, folder)
        try:
            typed_and_undone(notes)
            found(notes)
        except BaseException:
            shutil.copy("Xvfb_screen0", "notes-gtk.xwd")  # the display keeps its picture there
            raise
        finally:
            notes.close()


main()
