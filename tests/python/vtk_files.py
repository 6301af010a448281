"""Reads written files with the VTK library."""

import numpy as np
from vtkmodules.util.numpy_support import vtk_to_numpy
from vtkmodules.vtkIOLegacy import vtkPolyDataReader, vtkStructuredPointsReader


def read_fluid(path):
    """Grid sizes (nx, ny, nz), origin, spacing, and a dictionary of arrays (nz, ny, nx, 3)."""
    reader = vtkStructuredPointsReader()
    reader.SetFileName(str(path))
    reader.ReadAllVectorsOn()
    reader.Update()
    data = reader.GetOutput()
    sizes = data.GetDimensions()
    arrays = {}
    for index in range(data.GetPointData().GetNumberOfArrays()):
        array = data.GetPointData().GetArray(index)
        arrays[array.GetName()] = vtk_to_numpy(array).reshape(*sizes[::-1], 3)
    return sizes, np.array(data.GetOrigin()), np.array(data.GetSpacing()), arrays


def read_polydata(path):
    """The vtkPolyData of an object, markers, lines or trajectory file."""
    reader = vtkPolyDataReader()
    reader.SetFileName(str(path))
    reader.ReadAllVectorsOn()
    reader.ReadAllScalarsOn()
    reader.ReadAllNormalsOn()
    reader.ReadAllTCoordsOn()
    reader.Update()
    return reader.GetOutput()
