#!/usr/bin/env python3
"""Hostile PostScript documents against the thumbnailer's rendering fallback.

Each document has no embedded preview, so the renderer child runs it; it
tries one thing (read, list, write, delete or rename a file, start a program)
inside a `stopped` context and paints its page RED when that worked and BLUE
when it was refused. The suite checks both the thumbnail's pixels and the
file system around it, then the process-level attacks: an endless loop, a
memory bomb, the descriptors the child holds and the child outliving its
parent.

    hostile_documents.py PXHOST

The documents and the world they attack are made here (`World`, `ATTACKS`),
also for the desktop integration test, which sends some of them through
Tumbler.
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import zlib
from pathlib import Path

RED, BLUE = (255, 0, 0), (0, 0, 255)
# The descriptors the caller holds open on a secret when it runs the
# thumbnailer: one the attack names through /dev/fd, one on a high number.
INHERITED_FD, HIGH_FD = 7, 200
# The plug-in classifies a document from its first 512 bytes, and names a
# kind only for a file longer than that: comments pad both ends.
PAD = "% A page with no embedded preview: the thumbnailer renders it.\n" * 10


def document(attack):
    return (
        "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 100 100\n%%Pages: 1\n%%EndComments\n" + PAD + "%%Page: 1 1\n"
        "/worked false def\n"
        "{ " + attack + " } stopped pop clear\n"
        "worked { 1 0 0 } { 0 0 1 } ifelse setrgbcolor 0 0 100 100 rectfill\n"
        "showpage\n%%EOF\n" + "%" * 600 + "\n"
    )


def ps(path):
    """A path as a PostScript string."""
    return "(" + str(path).replace("\\", "\\\\").replace("(", "\\(").replace(")", "\\)") + ")"


def read(path):
    return f"{ps(path)} (r) file 64 string readstring pop pop /worked true def"


def listing(pattern):
    return f"{ps(pattern)} {{ pop /worked true def }} 256 string filenameforall"


def write(path):
    return f"{ps(path)} (w) file dup (written) writestring closefile /worked true def"


def delete(path):
    return f"{ps(path)} deletefile /worked true def"


def rename(path, to):
    return f"{ps(path)} {ps(to)} renamefile /worked true def"


class World:
    """The folders a document goes after: the caller's temporary folder
    ($TMPDIR), /tmp itself, the home folder, a folder a symbolic link points
    into, and OUT's folder; each with a secret to read and a victim to delete
    or rename."""

    def __init__(self):
        self.root = Path(tempfile.mkdtemp(prefix="qlformat-hostile-", dir="/tmp"))
        self.tmpdir, self.home = self.root / "tmpdir", self.root / "home"
        self.elsewhere, self.out = self.root / "elsewhere", self.root / "out"
        for folder in (self.tmpdir, self.home, self.elsewhere, self.out):
            folder.mkdir()
        # /tmp itself: loose files beside the world's folder.
        self.loose = Path("/tmp") / (self.root.name + "-loose")
        self.places = {"tmpdir": self.tmpdir, "tmp": self.loose, "home": self.home}
        for name, place in self.places.items():
            place.mkdir(exist_ok=True)
            (place / "secret").write_text(f"secret of {name}\n")
            (place / "victim").write_text(f"victim in {name}\n")
        (self.tmpdir / "link-out").symlink_to(self.elsewhere / "through-link")
        (self.tmpdir / "link-in").symlink_to(self.home / "secret")
        (self.root / "inherited").write_text("a secret the caller holds open\n")
        self.before = self.snapshot()

    def env(self):
        return dict(os.environ, TMPDIR=str(self.tmpdir), HOME=str(self.home))

    def snapshot(self):
        """Every file and link under the world's folders, with its content."""
        seen = {}
        for top in (self.root, self.loose):
            for dirpath, dirnames, filenames in os.walk(top):
                for name in dirnames + filenames:
                    p = Path(dirpath) / name
                    if p.parent == self.out:
                        continue  # thumbnails land there
                    seen[str(p)] = os.readlink(p) if p.is_symlink() else p.read_bytes() if p.is_file() else None
        return seen

    def untouched(self):
        return self.snapshot() == self.before

    def leftovers(self):
        """What the thumbnailer left in OUT's folder besides thumbnails."""
        return [p.name for p in self.out.iterdir() if p.suffix != ".png"]

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.rmtree(self.loose, ignore_errors=True)


def attacks(world):
    """(name, PostScript attack) pairs; every one must be refused."""
    t, loose, home = world.tmpdir, world.loose, world.home
    found = [
        ("read-etc", read("/etc/passwd")),
        ("list-etc", listing("/etc/*")),
        ("read-proc-self", read("/proc/self/environ")),
        ("list-proc-self", listing("/proc/self/*")),
        ("read-inherited-fd", read(f"/dev/fd/{INHERITED_FD}")),
        ("read-high-fd", read(f"/dev/fd/{HIGH_FD}")),
        ("read-through-link", read(t / "link-in")),
        ("write-through-link", write(t / "link-out")),
        ("pipe", f"(%pipe%touch {world.root / 'piped'}) (w) file closefile /worked true def"),
    ]
    for name, place in world.places.items():
        found += [
            (f"read-{name}", read(place / "secret")),
            (f"list-{name}", listing(f"{place}/*")),
            (f"write-{name}", write(place / "written")),
            (f"delete-{name}", delete(place / "victim")),
            (f"rename-{name}", rename(place / "victim", place / "renamed")),
        ]
    found.append(("list-slash-tmp", listing("/tmp/*")))
    return found


def png_pixels(path):
    """(width, height, rows of RGB bytes) of an 8-bit RGB PNG, as pxhost writes them."""
    data = Path(path).read_bytes()
    pos, idat = 8, b""
    while pos < len(data):
        length = int.from_bytes(data[pos : pos + 4], "big")
        kind, body = data[pos + 4 : pos + 8], data[pos + 8 : pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            width, height = int.from_bytes(body[:4], "big"), int.from_bytes(body[4:8], "big")
            assert body[8:10] == b"\x08\x02", "8-bit RGB"
        elif kind == b"IDAT":
            idat += body
    raw, stride, rows, prev = zlib.decompress(idat), width * 3, [], bytearray(width * 3)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1 : (y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - 3] if i >= 3 else 0
            b, c = prev[i], prev[i - 3] if i >= 3 else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(bytes(line))
        prev = line
    return width, height, rows


def centre(path):
    width, height, rows = png_pixels(path)
    x, y = width // 2, height // 2
    return tuple(rows[y][3 * x : 3 * x + 3])


failures = []


def check(ok, what):
    print(("ok   " if ok else "FAIL ") + what, flush=True)
    if not ok:
        failures.append(what)


def open_secrets(world):
    """The caller's descriptors on the secret, on INHERITED_FD and HIGH_FD."""
    fd = os.open(world.root / "inherited", os.O_RDONLY)
    for number in (INHERITED_FD, HIGH_FD):
        os.dup2(fd, number, inheritable=True)
    os.close(fd)


def thumbnail(pxhost, world, doc, *extra, **kw):
    out = world.out / (doc.stem + ".png")
    cmd = [pxhost, "thumbnail", "-s", "32", *extra, str(doc), str(out)]
    proc = subprocess.run(cmd, env=world.env(), capture_output=True, text=True,
                          pass_fds=(INHERITED_FD, HIGH_FD), **kw)
    return proc, out


def check_documents(pxhost, world):
    for name, attack in attacks(world):
        doc = world.root / f"{name}.ps"
        doc.write_text(document(attack))
        world.before[str(doc)] = doc.read_bytes()
        proc, out = thumbnail(pxhost, world, doc, timeout=60)
        made = proc.returncode == 0 and out.exists()
        check(made, f"{name}: the page is rendered" + ("" if made else f" ({proc.stderr.strip()})"))
        if made:
            check(centre(out) == BLUE, f"{name}: the page says refused (centre {centre(out)})")
        check(world.untouched(), f"{name}: nothing around it changed")
        check(not (world.root / "piped").exists(), f"{name}: no program ran")
        check(world.leftovers() == [], f"{name}: the private folder is gone {world.leftovers()}")


def children_of(pid):
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                fields = (entry / "stat").read_text().rsplit(")", 1)[1].split()
            except OSError:
                continue
            if int(fields[1]) == pid:
                found.append(int(entry.name))
    return found


def running(pid):
    try:
        return (Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]) != "Z"
    except OSError:
        return False


def check_limits(pxhost, world):
    loop = world.root / "loop.ps"
    loop.write_text(document("{ } loop"))
    start = time.monotonic()
    proc, _ = thumbnail(pxhost, world, loop, "--time-limit", "2", timeout=60)
    took = time.monotonic() - start
    check(proc.returncode != 0 and "time limit" in proc.stderr and took < 6,
          f"endless loop: ends at its time limit ({took:.1f} s, {proc.stderr.strip()})")
    # The address-space limit stops it in a plain build; a sanitizer build's
    # runtime reserves its memory beforehand, and then the time limit does.
    bomb = world.root / "bomb.ps"
    bomb.write_text(document("/a [] def { /a [ a 100000 array ] def } loop"))
    start = time.monotonic()
    proc, out = thumbnail(pxhost, world, bomb, "--memory-limit", "128", "--time-limit", "5", timeout=90)
    took = time.monotonic() - start
    lines = proc.stderr.strip().splitlines()
    check(took < 9 and (proc.returncode == 0 or len(lines) == 1),
          f"memory bomb: ends within its limits ({took:.1f} s, {proc.stderr.strip()})")
    if proc.returncode == 0:
        check(centre(out) == BLUE, "memory bomb: the page says refused")
    check(world.leftovers() == [], f"limits: the private folders are gone {world.leftovers()}")


def check_child(pxhost, world):
    """While the child renders an endless loop: what it holds; then its
    parent is killed."""
    loop = world.root / "loop-held.ps"
    loop.write_text(document("{ } loop"))
    out = world.out / "held.png"
    parent = subprocess.Popen([pxhost, "thumbnail", "--time-limit", "30", str(loop), str(out)], env=world.env(),
                              pass_fds=(INHERITED_FD, HIGH_FD), stderr=subprocess.DEVNULL)
    child, deadline = None, time.monotonic() + 10
    while child is None and time.monotonic() < deadline:
        found = children_of(parent.pid)
        if found and Path(f"/proc/{found[0]}/status").read_text().find("Seccomp:\t2") >= 0:
            child = found[0]
        time.sleep(0.05)
    check(child is not None, "child: started and confined")
    if child is None:
        parent.kill()
        parent.wait()
        return
    # Past 0 to 4 only what the renderer opened itself: its own resources and
    # the document again, by its /proc/self/fd name.
    fds = {int(n): os.readlink(f"/proc/{child}/fd/{n}") for n in os.listdir(f"/proc/{child}/fd")}
    check(all(n <= 4 or fds[n].startswith("/usr/") or fds[n] == str(loop) for n in fds)
          and str(world.root / "inherited") not in fds.values(),
          f"child: holds nothing its caller had open {fds}")
    check(all(fds.get(n) == "/dev/null" for n in (0, 1, 2)), "child: standard streams on /dev/null")
    check(fds.get(3, "").startswith("pipe:") and fds.get(4) == str(loop), "child: the pipe and the document")
    status = Path(f"/proc/{child}/status").read_text()
    check("NoNewPrivs:\t1" in status, "child: no new privileges")
    private = [p for p in world.out.iterdir() if p.name.startswith(".qlformat-render-")]
    check(len(private) == 1 and private[0].is_dir() and not any(private[0].iterdir()),
          f"child: a private, empty folder beside OUT {private}")
    os.kill(parent.pid, signal.SIGKILL)
    parent.wait()
    killed = time.monotonic()
    while running(child) and time.monotonic() - killed < 3:
        time.sleep(0.02)
    gone = time.monotonic() - killed
    check(not running(child) and gone < 1, f"child: gone {gone:.2f} s after its parent was killed")
    for folder in private:
        shutil.rmtree(folder, ignore_errors=True)  # its parent died before removing it


def main():
    pxhost = sys.argv[1]
    world = World()
    try:
        open_secrets(world)
        check_documents(pxhost, world)
        check_limits(pxhost, world)
        check_child(pxhost, world)
    finally:
        world.remove()
    print(f"hostile documents: {len(failures)} failure(s)" if failures else "hostile documents: all refused")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
