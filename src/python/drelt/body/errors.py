"""The error of this package."""


class BodyError(ValueError):
    """A mesh, an option or a description that no body can be made from. Nothing was written."""
