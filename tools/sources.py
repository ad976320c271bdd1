"""What the checks of this folder share: the tracked source files, and their text without comments and literals."""
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "backend", "bench", "tests", "fuzz")
SUFFIXES = (".h", ".cpp")


def source_files():
    """Paths relative to the root of all C++ files: tracked or new ones, or all where there is no git."""
    command = ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", *FOLDERS]
    listing = subprocess.run(command, capture_output=True)
    if listing.returncode == 0:
        names = [pathlib.PurePosixPath(name.decode()) for name in listing.stdout.split(b"\0") if name]
    else:
        found = (path for folder in FOLDERS for path in (ROOT / folder).rglob("*"))
        names = [pathlib.PurePosixPath(path.relative_to(ROOT)) for path in found]
    return sorted(name for name in names if name.suffix in SUFFIXES and (ROOT / name).is_file())


def read(name):
    return (ROOT / name).read_text(encoding="utf-8")


_LITERALS = re.compile(
    r"""//[^\n]* | /\*.*?\*/ | R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)" | "(?:\\.|[^"\\\n])*"
        | (?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+'""",
    re.DOTALL | re.VERBOSE,
)


def _blank(match):
    text = match.group()
    if text.startswith("/"):
        return re.sub(r"[^\n]", " ", text)
    return '"' + re.sub(r"[^\n]", "_", text[1:-1]) + '"'


def without_literals(text):
    """The text with comments as spaces and the insides of literals as underscores; offsets and lines stay."""
    return _LITERALS.sub(_blank, text)


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1
