#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
#
# Another face for ins-setup, on a terminal: a bar, the last rules, and a key that cancels.
#
#     frontend.py PROGRAM COMMAND...      as in: frontend.py ins-setup install --kit my-kit
#
# All it knows it hears by --progress-fd. It ends as the program does, with the same exit code.
import collections
import json
import os
import selectors
import signal
import subprocess
import sys
import tempfile
import termios
import unicodedata

PANE = 6  # lines below the bar
CANCEL_KEYS = b"q\x03"  # q, Ctrl-C; Escape begins the arrows too


def printable(text):
    return "".join(letter if letter.isprintable() else "?" for letter in text)


def cells(letter):
    if unicodedata.combining(letter):
        return 0
    return 2 if unicodedata.east_asian_width(letter) in "WF" else 1


def clipped(text, room):
    """As much of a text as there is room for, in cells of the terminal."""
    taken = ""
    for letter in printable(text):
        room -= cells(letter)
        if room < 0:
            break
        taken += letter
    return taken


class Screen:
    """A bar with a pane below it, drawn over in their place."""

    def __init__(self):
        self.percent = 0
        self.pane = collections.deque(maxlen=PANE)
        self.current = ""  # what the rule at work says; the last line
        self.drawn = 0  # lines

    def draw(self):
        # The last column stays free: a terminal would go to the next line.
        room = max(os.get_terminal_size(sys.stdout.fileno()).columns - 1, 1)
        width = max(room - len("100% []"), 0)
        filled = width * self.percent // 100
        lines = [f"{self.percent:3}% [{'#' * filled}{'.' * (width - filled)}]"]
        lines += [*self.pane, self.current]
        text = "\r" + (f"\x1b[{self.drawn - 1}A" if self.drawn > 1 else "")
        text += "\r\n".join(clipped(line, room) + "\x1b[K" for line in lines) + "\x1b[J"
        sys.stdout.write(text)
        sys.stdout.flush()
        self.drawn = len(lines)

    def say(self, text):
        self.pane.append(text)


def take(event, screen):
    """Shows an event; answers the result when it is that."""
    screen.percent = event.get("percentage", screen.percent)
    kind = event["event"]
    if kind == "start":
        screen.say(f"{event['command']}: {event['product']}, {event['rules']} rules")
    elif kind == "rule started":
        screen.say(event["text"])
    elif kind == "status":
        screen.current = event["text"]
    elif kind == "result":
        screen.current = ""
        return event
    return None


def watch(setup, events, screen):
    """Until the program has ended; answers its result, or None if it had none to tell."""
    result, begun = None, b""
    selector = selectors.DefaultSelector()
    selector.register(events, selectors.EVENT_READ)
    selector.register(sys.stdin, selectors.EVENT_READ)
    while events in selector.get_map():
        for key, _ in selector.select():
            data = os.read(key.fd, 65536)
            if not data:  # its end; that of the keyboard is a terminal that is gone
                selector.unregister(key.fileobj)
            elif key.fd == events:
                *lines, begun = (begun + data).split(b"\n")
                for line in lines:
                    result = take(json.loads(line), screen) or result
            elif any(one in CANCEL_KEYS for one in data):
                screen.say("Stopping.")
                setup.send_signal(signal.SIGINT)
        screen.draw()
    setup.wait()
    return result


def summary(result, errors):
    if result is None:  # it was killed, or did not begin
        errors.seek(0)
        return "ins-setup told no result. " + errors.read().decode(errors="replace")
    if result["result"] == "done":
        return f"Done: {result['product']} {result.get('version', '')}"
    return f"{result['result'].capitalize()}: {result.get('error', {}).get('text', '')}"


def main(command):
    if not (sys.stdin.isatty() and sys.stdout.isatty()):
        sys.exit("frontend.py: standard input and output have to be a terminal.")
    events, end = os.pipe()
    errors = tempfile.TemporaryFile()  # what they say is in the result too
    try:
        setup = subprocess.Popen(
            [*command, "--quiet", "--progress-fd", str(end)], pass_fds=[end],
            stdin=subprocess.DEVNULL, stdout=errors, stderr=errors)
    except OSError as why:
        sys.exit(f"frontend.py: {command[0]}: {why.strerror}")
    os.close(end)
    # A request to this process is one to the program, which ends in good order.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, _: setup.send_signal(number))
    before = termios.tcgetattr(sys.stdin)
    mode = termios.tcgetattr(sys.stdin)
    mode[3] &= ~(termios.ECHO | termios.ICANON | termios.ISIG)  # keys as they come
    termios.tcsetattr(sys.stdin, termios.TCSADRAIN, mode)
    try:
        result = watch(setup, events, Screen())
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)
    print("\n" + printable(summary(result, errors)))
    code = setup.returncode
    return code if code >= 0 else 128 - code  # of a program that a signal ended


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:] or sys.exit("usage: frontend.py PROGRAM COMMAND...")))
