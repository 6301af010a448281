"""One asset: a mesh file, which several assets may share, and a description."""

import json
from dataclasses import dataclass
from pathlib import PurePosixPath

from .gltf import glb_bytes
from .mesh import Mesh
from .skeleton import Chain


@dataclass
class Asset:
    """A body ready to be checked and written.

    name and model are the file names of description and mesh, without extension. follow says
    whether the fluid grid translates with the first link. samples is the number of surface samples
    that the mesh is made for, and spacings are further node spacings (m) whose stability limit the
    report shows.
    """

    name: str
    model: str
    mesh: Mesh
    chain: Chain
    follow: bool
    samples: int
    spacings: tuple = ()

    def description(self, model_prefix):
        """The description file's content; model_prefix is the folder of the meshes for scripts."""
        base = self.chain.link_names()[0]
        return {
            "model_file": str(PurePosixPath(model_prefix, f"{self.model}.glb")),
            "baseLinkName": base,
            "baseFrameName": base if self.follow else "",
            "baseLinkFwd": [1.0, 0.0, 0.0],
            "baseLinkRight": [0.0, 0.0, 1.0],
            "baseLinkUp": [0.0, 1.0, 0.0],
            **self.chain.description(),
        }


def write_asset(asset, out, model_prefix):
    """Writes the mesh and the description of an asset into the folder out."""
    out.mkdir(parents=True, exist_ok=True)
    (out / f"{asset.model}.glb").write_bytes(glb_bytes(asset.mesh, asset.chain))
    text = json.dumps(asset.description(model_prefix), indent=2) + "\n"
    (out / f"{asset.name}.json").write_text(text, encoding="utf-8")
