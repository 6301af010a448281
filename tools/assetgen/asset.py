"""One asset: a mesh file, which several assets may share, and a description."""

import json
from dataclasses import dataclass
from pathlib import PurePosixPath

import numpy as np

from .gltf import glb_bytes
from .mesh import Mesh
from .skeleton import BoneTree


@dataclass
class Asset:
    """A body ready to be checked and written.

    name, model: file names of description and mesh, without extension.
    frame: name of the link that the fluid grid follows; empty for a grid at rest.
    samples: number of surface samples that the mesh is made for.
    dx: node spacing (m) at which the links must be stable.
    spacings: further node spacings whose stability limit the report shows.
    weights (vertices x bones): bind the skin. Without them each vertex moves rigidly with the bone that
    has the index of its nearest link.
    base: name of the link whose axes are those of the body; the first link if empty.
    markers: positions (m) of the probes on the skin.
    """

    name: str
    model: str
    mesh: Mesh
    tree: BoneTree
    samples: int
    dx: float
    frame: str = ""
    spacings: tuple = ()
    weights: np.ndarray = None
    base: str = ""
    markers: tuple = ()

    def description(self, model_prefix):
        """Content of the description file. model_prefix: folder of the meshes as scripts see it."""
        text = {
            "model_file": str(PurePosixPath(model_prefix, f"{self.model}.glb")),
            "baseLinkName": self.base or self.tree.link_names()[0],
            "baseFrameName": self.frame,
            "baseLinkFwd": [1.0, 0.0, 0.0],
            "baseLinkRight": [0.0, 0.0, 1.0],
            "baseLinkUp": [0.0, 1.0, 0.0],
            **self.tree.description(),
        }
        if self.markers:
            text["markers_placements"] = [list(place) for place in self.markers]
        return text

    def skin(self):
        """Weights of the skin, vertices x bones."""
        if self.weights is not None:
            return self.weights
        return np.eye(len(self.tree.bones()))[self.tree.nearest_link(self.mesh.vertices)]


def write_asset(asset, out, model_prefix):
    """Writes the mesh and the description of an asset into the folder out."""
    out.mkdir(parents=True, exist_ok=True)
    (out / f"{asset.model}.glb").write_bytes(glb_bytes(asset.mesh, asset.tree, asset.skin()))
    text = json.dumps(asset.description(model_prefix), indent=2) + "\n"
    (out / f"{asset.name}.json").write_text(text, encoding="utf-8")
