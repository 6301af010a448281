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
    samples: number of surface samples that the mesh is made for.
    dx: node spacing (m) for which the links must be heavy enough.
    frame: name of the link with which the fluid grid translates; empty for a grid at rest.
    spacings: further node spacings for which the report shows the stability limit.
    weights (vertices x bones): bind the skin. Without them, each vertex moves rigidly with the bone
    whose index is that of the vertex's nearest link.
    base: name of the link whose axes are the body's; the first link if empty.
    markers: places (m) of the probes on the skin.
    semi_implicit: whether the body is for that coupling, which takes lighter links.
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
    semi_implicit: bool = False

    def description(self, model_prefix):
        """The description file's content; model_prefix is the folder of the meshes for scripts."""
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
        """Dense weights of the skin, vertices x bones."""
        if self.weights is not None:
            return self.weights
        return np.eye(len(self.tree.bones()))[self.tree.nearest_link(self.mesh.vertices)]


def write_asset(asset, out, model_prefix):
    """Writes the mesh and the description of an asset into the folder out."""
    out.mkdir(parents=True, exist_ok=True)
    (out / f"{asset.model}.glb").write_bytes(glb_bytes(asset.mesh, asset.tree, asset.skin()))
    text = json.dumps(asset.description(model_prefix), indent=2) + "\n"
    (out / f"{asset.name}.json").write_text(text, encoding="utf-8")
