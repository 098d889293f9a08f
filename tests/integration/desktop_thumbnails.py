"""The package on a real desktop stack: installed with apt, thumbnails asked of
GNOME's thumbnail factory (which runs the thumbnailer in its bubblewrap
sandbox) and of Tumbler over a private session bus, hostile documents through
Tumbler (the thumbnailer's own confinement is all that stops them there), the MIME
type checked through Gio, and the package purged again, also when a check fails."""

import argparse
import hashlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

SWATCH_TYPE = "application/x-swatch-exchange"
SIZES = {"normal": 128, "large": 256}
# The one sample the plug-in refuses (it is cut short); every other sample
# must get a thumbnail.
REFUSED = {"truncated.sxf"}

failures = []
# Written before this test installs the package and removed once it is purged:
# a package found installed with this mark is what an interrupted run (a
# machine stopped mid-test) left behind, not a user's install.
MARK = Path("/var/tmp/qlformat-integration.installed")


def check(ok, what):
    print(("ok    " if ok else "FAIL  ") + what, flush=True)
    if not ok:
        failures.append(what)


def run(*args, **kw):
    return subprocess.run(args, check=True, text=True, capture_output=True, **kw)


def apt(*args):
    env = dict(os.environ, DEBIAN_FRONTEND="noninteractive", PATH="/usr/sbin:/usr/bin:/sbin:/bin")
    return run("apt-get", "-o", "DPkg::Lock::Timeout=600", "-y", "-qq", *args, env=env)


def installed(package):
    q = subprocess.run(["dpkg-query", "-W", "-f=${Status}", package], text=True, capture_output=True)
    return "install ok installed" in q.stdout


def fitted(w, h, size):
    """Longest side at most size, aspect kept, never enlarged; the short side
    may round either way."""
    if max(w, h) <= size:
        return {(w, h)}
    long_, short = max(w, h), min(w, h)
    sides = {max(1, short * size // long_), max(1, -(-short * size // long_))}
    return {(size, s) if w >= h else (s, size) for s in sides}


def rgb_rows(pixbuf):
    """The pixbuf's RGB bytes, row by row, alpha and row padding dropped."""
    data = pixbuf.get_pixels()
    n, stride = pixbuf.get_n_channels(), pixbuf.get_rowstride()
    rows = []
    for y in range(pixbuf.get_height()):
        row = data[y * stride : y * stride + pixbuf.get_width() * n]
        rows.append(bytes(b for i, b in enumerate(row) if i % n < 3))
    return rows


def samples(root, work, pdf):
    """The vector samples with an EPS twin of each PostScript one (an EPSF
    header on the same file), a PostScript page with no embedded preview (it
    is rendered), EPS files other programs wrote, and the swatch samples."""
    files = []
    for ps in sorted((root / "samples/vector").glob("*.ps")):
        files.append(ps)
        eps = work / (ps.stem + ".eps")
        eps.write_bytes(b"%!PS-Adobe-3.0 EPSF-3.0\n" + ps.read_bytes().split(b"\n", 1)[1])
        files.append(eps)
    plain = work / "no-preview.ps"
    # The plug-in classifies a document from its first 512 bytes and leaves a
    # shorter file unclassified, so comments pad the page past that.
    padding = "% A page with no embedded preview: the thumbnailer renders it.\n" * 10
    plain.write_text(
        "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 200 100\n%%Pages: 1\n%%EndComments\n" + padding + "%%Page: 1 1\n"
        "1 0 0 setrgbcolor 0 0 100 100 rectfill 0 0 1 setrgbcolor 100 0 100 100 rectfill\n"
        "showpage\n%%EOF\n"
        # The reader's classifier names a document kind only from 512 bytes on.
        + "%" * 600 + "\n"
    )
    files.append(plain)
    files += eps_from_other_programs(work)
    if pdf:
        files += sorted((root / "samples/vector").glob("*.pdf"))
    files += sorted((root / "samples/swatches").glob("*.sxf"))
    return files


def eps_from_other_programs(work):
    """EPS files as other programs write them, of a drawing placed far from
    the page's corner: a DOS EPS file with a colour TIFF preview (the
    thumbnail, no interpreter run) and one with a bilevel preview (its
    PostScript section rendered), both by epstool, and an EPSI file by
    ps2epsi (rendered). Skipped, with a note, for a program not installed."""
    drawing = work / "drawing.eps"
    drawing.write_text(
        "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 300 400 364 432\n%%EndComments\n"
        "1 0 0 setrgbcolor 300 400 32 32 rectfill 0 0 1 setrgbcolor 332 400 32 32 rectfill\n"
        "showpage\n%%EOF\n"
    )
    made = []
    for program, args, name in (
        ("epstool", ["--quiet", "-t6p"], "tiff-colour.eps"),
        ("epstool", ["--quiet", "-t4"], "tiff-bilevel.eps"),
        ("ps2epsi", [], "interchange.epsi"),
    ):
        if shutil.which(program) is None:
            print(f"      {program} is not installed: no {name}")
            continue
        run(program, *args, str(drawing), str(work / name))
        made.append(work / name)
    return made


def reference(path, size, work, GdkPixbuf):
    """What the thumbnail must show: the preview the plug-in decodes when the
    file has one; otherwise (a swatch book's chip grid, drawn at the size; a
    rendered page) the installed pxhost's own thumbnail made outside the
    sandbox. None when pxhost refuses the file."""
    out = work / f"ref-{path.name}-{size}.png"
    preview = ["/usr/bin/pxhost", "preview", str(path), "-o", str(out)]
    direct = ["/usr/bin/pxhost", "thumbnail", "-s", str(size), str(path), str(out)]
    for cmd in ([preview, direct] if path.suffix != ".sxf" else [direct]):
        if subprocess.run(cmd, capture_output=True).returncode == 0:
            return GdkPixbuf.Pixbuf.new_from_file(str(out))
    return None


def check_factory(files, work):
    import gi

    gi.require_version("GnomeDesktop", "3.0")
    gi.require_version("GdkPixbuf", "2.0")
    from gi.repository import GdkPixbuf, Gio, GLib, GnomeDesktop

    for flavour, size in SIZES.items():
        enum = getattr(GnomeDesktop.DesktopThumbnailSize, flavour.upper())
        factory = GnomeDesktop.DesktopThumbnailFactory.new(enum)
        for path in files:
            uri = Gio.File.new_for_path(str(path)).get_uri()
            mime, _ = Gio.content_type_guess(str(path), path.read_bytes()[:4096])
            what = f"factory {flavour} {path.name} ({mime})"
            mtime = int(path.stat().st_mtime)
            if not factory.can_thumbnail(uri, mime, mtime):
                check(False, f"{what}: can_thumbnail says no")
                continue
            ref = reference(path, size, work, GdkPixbuf)
            pixbuf, error = None, "none made"
            try:
                pixbuf = factory.generate_thumbnail(uri, mime, None)
            except GLib.Error as e:
                error = e.message
            if path.name in REFUSED:
                check(pixbuf is None and ref is None, f"{what}: refused")
                continue
            if pixbuf is None or ref is None:
                check(False, f"{what}: no thumbnail ({error if pixbuf is None else 'pxhost refuses it'})")
                continue
            pixbuf.savev(str(work / f"{flavour}-{path.name}.png"), "png", [], [])
            got = (pixbuf.get_width(), pixbuf.get_height())
            want = fitted(ref.get_width(), ref.get_height(), size)
            check(got in want, f"{what}: size {got}, expected one of {sorted(want)}")
            # A preview is never enlarged and sample previews are at most
            # 128 pixels; a drawn or rendered thumbnail is made at the size:
            # either way the factory's picture is the reference itself.
            if got == (ref.get_width(), ref.get_height()):
                check(rgb_rows(pixbuf) == rgb_rows(ref), f"{what}: pixels equal the plug-in's image")


def check_mime(root, work):
    from gi.repository import Gio

    sxf = root / "samples/swatches/basic.sxf"
    renamed = work / "colours-without-extension"
    shutil.copyfile(sxf, renamed)
    for path in (sxf, renamed):
        for name in ("guess", "query"):
            if name == "guess":
                mime, _ = Gio.content_type_guess(str(path), path.read_bytes()[:4096])
            else:
                info = Gio.File.new_for_path(str(path)).query_info("standard::content-type", 0, None)
                mime = info.get_content_type()
            check(mime == SWATCH_TYPE, f"content type of {path.name} by {name}: {mime}")
    desc = Gio.content_type_get_description(SWATCH_TYPE)
    check(desc == "Swatch exchange file", f"description of {SWATCH_TYPE}: {desc}")


def check_pdf_entry(pdf):
    """PDF is taken over only when the package was configured to."""
    entry = Path("/usr/share/thumbnailers/qlformat.thumbnailer").read_text()
    check(("application/pdf" in entry) == pdf, f"the thumbnailer entry {'takes' if pdf else 'leaves'} PDF")


def check_tumbler(files, work):
    """Tumbler, started by D-Bus activation on a private session bus, asked
    for normal thumbnails; they land in $XDG_CACHE_HOME/thumbnails/normal and
    must show what the factory's do. Tumbler hands the thumbnailer an output
    file it created and reads the picture back through its own descriptor."""
    import gi

    gi.require_version("GdkPixbuf", "2.0")
    from gi.repository import GdkPixbuf

    cache = work / "cache"
    env = dict(os.environ, XDG_CACHE_HOME=str(cache))
    script = Path(__file__).with_name("tumbler_queue.py")
    asked = [p for p in files if p.name not in REFUSED]
    proc = subprocess.run(
        ["dbus-run-session", "--", "/usr/bin/python3", str(script), *[p.as_uri() for p in asked]],
        env=env,
        text=True,
        capture_output=True,
        timeout=120,
    )
    for line in proc.stdout.splitlines():
        print("      tumbler: " + line)
    check(proc.returncode == 0, "tumbler finished the request" + ("" if proc.returncode == 0 else f": {proc.stderr[-300:]}"))
    size = SIZES["normal"]
    for path in asked:
        what = f"tumbler {path.name}"
        thumb = cache / "thumbnails/normal" / f"{hashlib.md5(path.as_uri().encode()).hexdigest()}.png"
        ref = reference(path, size, work, GdkPixbuf)
        if not thumb.exists() or ref is None:
            check(False, f"{what}: no thumbnail" if ref is not None else f"{what}: pxhost refuses it")
            continue
        shutil.copyfile(thumb, work / f"tumbler-{path.name}.png")
        pixbuf = GdkPixbuf.Pixbuf.new_from_file(str(thumb))
        got = (pixbuf.get_width(), pixbuf.get_height())
        want = fitted(ref.get_width(), ref.get_height(), size)
        check(got in want, f"{what}: size {got}, expected one of {sorted(want)}")
        if got == (ref.get_width(), ref.get_height()):
            check(rgb_rows(pixbuf) == rgb_rows(ref), f"{what}: pixels equal the plug-in's image")


def check_hostile_tumbler(root, work):
    """The hostile-document suite's attacks (tests/desktop) sent through
    Tumbler, whose thumbnailers run with no sandbox of their own: every page
    must say refused and nothing around it may change. Tumbler and so the
    thumbnailer get the attacked world's TMPDIR and HOME."""
    import gi

    gi.require_version("GdkPixbuf", "2.0")
    from gi.repository import GdkPixbuf

    sys.path.insert(0, str(root / "tests/desktop"))
    import hostile_documents as hostile

    world = hostile.World()
    try:
        docs = []
        for name, attack in hostile.attacks(world):
            doc = world.root / f"{name}.ps"
            doc.write_text(hostile.document(attack))
            docs.append(doc)
        world.before = world.snapshot()
        cache = work / "hostile-cache"
        env = dict(world.env(), XDG_CACHE_HOME=str(cache))
        proc = subprocess.run(
            ["dbus-run-session", "--", "/usr/bin/python3", str(Path(__file__).with_name("tumbler_queue.py")),
             *[d.as_uri() for d in docs]],
            env=env, text=True, capture_output=True, timeout=180,
        )
        check(proc.returncode == 0, "tumbler finished the hostile documents")
        for doc in docs:
            thumb = cache / "thumbnails/normal" / f"{hashlib.md5(doc.as_uri().encode()).hexdigest()}.png"
            if not thumb.exists():
                check(False, f"tumbler hostile {doc.stem}: no thumbnail")
                continue
            pixbuf = GdkPixbuf.Pixbuf.new_from_file(str(thumb))
            n, stride = pixbuf.get_n_channels(), pixbuf.get_rowstride()
            x, y = pixbuf.get_width() // 2, pixbuf.get_height() // 2
            pixel = tuple(pixbuf.get_pixels()[y * stride + x * n : y * stride + x * n + 3])
            check(pixel == hostile.BLUE, f"tumbler hostile {doc.stem}: the page says refused ({pixel})")
        check(world.untouched(), "tumbler hostile: nothing around the documents changed")
        check(not (world.root / "piped").exists(), "tumbler hostile: no program ran")
    finally:
        world.remove()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--deb", type=Path, required=True)
    parser.add_argument("--pdf", action="store_true", help="the package was built with QL_THUMBNAIL_PDF")
    parser.add_argument("--keep", help="copy the thumbnails made into this folder")
    args = parser.parse_args()

    if installed("qlformat") and MARK.exists():
        print("integration: purging the package an interrupted run left installed", flush=True)
        apt("purge", "qlformat")
    if installed("qlformat"):
        print("integration: qlformat is already installed; this test installs and purges its own", file=sys.stderr)
        return 2
    # The sandboxed thumbnailer sees only /usr: a copy under /usr/local (or in
    # a user's data folder) must not stand in for the package's.
    os.environ.update(PATH="/usr/bin:/bin", XDG_DATA_DIRS="/usr/share")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))

    work = Path(tempfile.mkdtemp(prefix="qlformat-integration-"))
    os.environ.update(HOME=str(work / "home"), XDG_DATA_HOME=str(work / "home/data"))
    try:
        print(f"integration: installing {args.deb.name}", flush=True)
        MARK.touch()
        apt("install", str(args.deb.resolve()))
        files = samples(args.root, work, args.pdf)
        check_mime(args.root, work)
        check_pdf_entry(args.pdf)
        check_factory(files, work)
        check_tumbler(files, work)
        check_hostile_tumbler(args.root, work)
        if args.keep:
            shutil.copytree(work, args.keep, dirs_exist_ok=True)
    finally:
        if installed("qlformat"):
            apt("purge", "qlformat")
        if not installed("qlformat"):
            MARK.unlink(missing_ok=True)
        shutil.rmtree(work, ignore_errors=True)
    left = [p for p in ("/usr/bin/pxhost", "/usr/lib/qlformat", "/usr/share/thumbnailers/qlformat.thumbnailer",
                        "/usr/share/mime/packages/qlformat.xml", "/usr/share/mime/application/x-swatch-exchange.xml")
            if os.path.exists(p)]
    check(not installed("qlformat") and not left, f"package purged, nothing left behind {left}")
    print(f"integration: {len(failures)} failure(s)" if failures else "integration: all passed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
