"""Builds the bundled boned, skinned meshes and their skeleton descriptions.

Each body (sphere, plate, swimmer, eel) has a module with its geometry and skeleton. The shared modules
check them (checks) and write the glTF binary (gltf) and the description (asset). Lengths are in
metres, masses in kilograms. The module wild makes meshes as they come from modelling programs, for tests
of imports; they are no assets.
"""
