"""The version of the project: one number, which stands in project() of the CMakeLists.txt."""

import argparse
import re
from pathlib import Path

HERE = Path(__file__).resolve().parent


def project_version():
    """Three numbers with dots between them. An installed copy has them in a file of their own."""
    installed = HERE.parent / "version"
    if installed.is_file():
        return installed.read_text().strip()
    return re.search(r"^project\(\S+ VERSION ([\d.]+)", (HERE.parent / "CMakeLists.txt").read_text(),
                     re.MULTILINE)[1]


class _Version(argparse.Action):
    def __call__(self, parser, *_):
        print(parser.prog, project_version())
        parser.exit()


def add_version(parser):
    parser.add_argument("--version", action=_Version, nargs=0, help="print the project's version")
