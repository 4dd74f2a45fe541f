"""Writing generated files: untouched when unchanged, so that the build
does not recompile what did not change."""
from pathlib import Path


def write_if_changed(path: Path, text: str) -> None:
    if not path.exists() or path.read_text() != text:
        path.write_text(text)
