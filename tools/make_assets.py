#!/usr/bin/env python3
"""Writes the bundled meshes (glTF binary) and their skeleton descriptions (JSON) into assets/."""

import argparse
import sys
from pathlib import Path

from assetgen.asset import write_asset
from assetgen.checks import check, report
from assetgen.eel import eel_assets
from assetgen.mesh import AssetError
from assetgen.plate import plate_assets
from assetgen.sphere import sphere_assets
from assetgen.swimmer import swimmer_assets


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument(
        "names", nargs="*", metavar="name", help="assets to write; all if none is given"
    )
    parser.add_argument(
        "--dx",
        type=float,
        help="node spacing in m (by default, the one that each body is made for)",
    )
    parser.add_argument(
        "--retraction",
        type=float,
        default=0.85,
        help="retraction of the shrunk sphere's skin in node spacings (%(default)g)",
    )
    parser.add_argument(
        "--samples", type=int, help="number of surface samples for which the faces are checked"
    )
    parser.add_argument(
        "--out",
        type=Path,
        default=Path(__file__).resolve().parent.parent / "assets",
        help="folder to write to (%(default)s)",
    )
    parser.add_argument(
        "--model-prefix",
        default="assets",
        help='folder of the meshes as "model_file" names it, seen from the working directory of '
        "the scripts that load them (%(default)s)",
    )
    return parser.parse_args()


def chosen_assets(arguments):
    """Builds the wanted assets; unknown names and unusable numbers raise AssetError."""
    dx = arguments.dx
    if dx is not None and not 0.0 < dx < float("inf"):
        raise AssetError(f"the node spacing must be a positive number of m, not {dx:g}")
    every = sphere_assets(arguments.retraction, dx) + plate_assets(dx)
    every += swimmer_assets(dx) + eel_assets(dx)
    known = [asset.name for asset in every]
    unknown = [name for name in arguments.names if name not in known]
    if unknown:
        raise AssetError(f"no asset {', '.join(unknown)}; there are {', '.join(known)}")
    chosen = [asset for asset in every if not arguments.names or asset.name in arguments.names]
    if arguments.samples is not None:
        for asset in chosen:
            asset.samples = arguments.samples
    return chosen


def main():
    arguments = parse_arguments()
    try:
        assets = chosen_assets(arguments)
        for asset in assets:
            check(asset)
    except AssetError as error:
        print(f"make_assets: {error}; nothing was written", file=sys.stderr)
        return 1
    for asset in assets:
        print(report(asset))
        write_asset(asset, arguments.out, arguments.model_prefix)
    return 0


if __name__ == "__main__":
    sys.exit(main())
