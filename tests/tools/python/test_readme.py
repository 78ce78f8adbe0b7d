"""The README's Python example runs and finds the motion it was made with."""

import contextlib
import io
import pathlib

import numpy as np

README = pathlib.Path(__file__).resolve().parents[3] / "README.md"


def example():
    """The indented block of the README's Python section that imports tavrix."""
    text = README.read_text().split("## Tracking from Python", 1)[1]
    lines = text.splitlines()
    first = next(k for k, line in enumerate(lines) if line == "    import numpy as np")
    block = []
    for line in lines[first:]:
        if line and not line.startswith("    "):
            break
        block.append(line[4:])
    return "\n".join(block)


def test_readme_example_runs_and_tracks_the_drift():
    names = {}
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        exec(compile(example(), str(README), "exec"), names)
    k = np.arange(10)
    truth = np.stack([80.5 + 0.3 * k, 60.5 + 0.2 * k], axis=1)
    assert np.abs(names["tracker"].positions[0] - truth).max() < 0.05
    assert printed.getvalue().strip() == str(names["tracker"].positions[0, -1])
