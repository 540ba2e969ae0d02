#!/usr/bin/env python3
"""Draws a RIB file in the "Pencil Test" window on a private Xvfb and saves
what the window shows as a PNG picture (the README's picture is made so).

Usage: window_picture.py TRACERY XPROBE SCENE.rib OUT.png [tracery options]

XPROBE is the test build's window probe (build/xprobe). The scene is read
from its own folder.
"""
import os
import struct
import subprocess
import sys
import time
import zlib


def start_server():
    read_end, write_end = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0",
                               "1280x1024x24", "-nolisten", "tcp"], pass_fds=(write_end,),
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write_end)
    with os.fdopen(read_end) as pipe:
        return server, ":" + pipe.readline().strip()


def write_png(path, rows):
    """rows: lists of (r, g, b) tuples, all of one length."""
    height, width = len(rows), len(rows[0])
    raw = b"".join(b"\0" + bytes(c for pixel in row for c in pixel) for row in rows)

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(raw, 9)))
        f.write(chunk(b"IEND", b""))


def main(argv):
    if len(argv) < 5:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    tracery, xprobe, scene, out = (os.path.abspath(a) for a in argv[1:5])
    server, display = start_server()
    env = dict(os.environ, DISPLAY=display)
    program = subprocess.Popen([tracery] + argv[5:] + [os.path.basename(scene)],
                               cwd=os.path.dirname(scene), env=env)
    try:
        found = subprocess.run([xprobe, "find", "Pencil Test", "20"], env=env,
                               capture_output=True, text=True)
        if found.returncode != 0:
            print("no window appeared", file=sys.stderr)
            return 1
        wid = found.stdout.split()[0]
        time.sleep(2)  # the picture is shown at the world's end
        shot = subprocess.run([xprobe, "capture", wid], env=env, capture_output=True, text=True)
        rows = [[tuple(bytes.fromhex(w)) for w in line.split()]
                for line in shot.stdout.splitlines()[1:]]
        write_png(out, rows)
        subprocess.run([xprobe, "key", wid], env=env)
        program.wait(timeout=20)
    finally:
        if program.poll() is None:
            program.kill()
        server.terminate()
        server.wait()
    print("wrote %s" % out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
