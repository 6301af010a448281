"""Builds the bundled boned, skinned meshes and their skeleton descriptions.

One module per body (sphere, plate, swimmer, eel) gives geometry and skeleton; the shared modules check them
(checks) and write the glTF binary (gltf) and the description (asset). Lengths are in metres, masses
in kilograms.
"""
